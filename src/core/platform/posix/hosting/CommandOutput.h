#pragma once
#include <optional>
#include <string>
#include <vector>

namespace orvi::platform {

/** Runs a program, without a shell, and gives what it wrote to its standard output. Empty when it could not be
    started, failed, wrote more than 64 KiB or took longer than `limitMs`; then it is killed. */
std::optional<std::string> commandOutput(const std::vector<std::string>& words, int limitMs);

} // namespace orvi::platform
