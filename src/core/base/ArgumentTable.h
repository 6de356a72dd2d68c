#pragma once
#include <orvi/core/Arguments.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace orvi {

/** The arguments of a command line, to look some of them up. Most lines are short: they need no memory. */
class ArgumentTable {
public:
    explicit ArgumentTable(const wchar_t* commandLine);
    ArgumentTable(const ArgumentTable&) = delete;
    ArgumentTable& operator=(const ArgumentTable&) = delete;

    /** False when there was no memory: then none is found. */
    bool isMade() const noexcept { return _argv != nullptr; }
    /** What follows "name=" in the first argument that begins so; null when none does, and without memory, which is
        logged. */
    const wchar_t* find(const wchar_t* name) const;

private:
    struct Free {
        void operator()(void* block) const { std::free(block); }
    };
    static constexpr std::size_t shortLine = 512;

    wchar_t _characters[shortLine];
    wchar_t* _entries[shortLine / 2 + 2]; // one for the program, those with a blank each, and the null
    wchar_t** _argv = nullptr;
    int _argc = 0;
    std::unique_ptr<wchar_t*[], Free> _owned;
};

} // namespace orvi
