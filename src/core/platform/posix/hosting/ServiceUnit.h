#pragma once
#include "platform/hosting/ServiceManager.h"

#include <optional>
#include <string>

namespace orvi::platform {

/** The name of the unit file, unlike for unlike names: "a/b" is "a\x2fb.service". Empty when the name is none:
    the empty one, "." and "..", and what is too long. */
std::optional<std::string> unitFileName(const String_T<char>& serviceName);

/** The content of the unit file. Empty when a text of the entry could mean more than itself there. */
std::optional<std::string> unitText(const ServiceEntry& entry);

/** The command line in a unit text, as it was before unitText quoted it; empty without one. */
std::string commandLineIn(const std::string& unitText);

} // namespace orvi::platform
