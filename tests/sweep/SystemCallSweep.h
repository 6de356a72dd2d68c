#pragma once
#include <filesystem>
#include <span>

/** What a scene tells of the library: did it all, said that it did not, or got something wrong without a word. */
enum class Outcome { Done, Failed, Wrong };

/** A piece of work in an empty directory of its own; `TMPDIR` is below it. */
struct Scene {
    const char* name;
    Outcome (*run)(const std::filesystem::path& place);
};
std::span<const Scene> scenes();

/** While one lives, system calls are counted, and the one whose turn it is fails. */
class Armed {
public:
    Armed();
    ~Armed();
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
};

/** Whether the call that has failed is this one: what it was to remove is still there. */
bool hasFailed(const char* call);
