#pragma once
#include <orvi/core/Arguments.h>

#include <cstdlib>
#include <memory>

namespace orvi {

/** The arguments of a command line, to look some of them up. */
class ArgumentTable {
public:
    explicit ArgumentTable(const wchar_t* commandLine)
    {
        wchar_t** argv = nullptr;
        parseArguments(commandLine, argv, _count);
        _arguments.reset(argv);
    }

    /** False when there was no memory: then none is found. */
    bool isMade() const noexcept { return _arguments != nullptr; }
    /** What follows "name=" in the first argument that begins so; null when none does, and without memory, which the
        log is told. */
    const wchar_t* find(const wchar_t* name) const;

private:
    struct Free {
        void operator()(void* block) const { std::free(block); }
    };

    std::unique_ptr<wchar_t*[], Free> _arguments;
    int _count = 0;
};

} // namespace orvi
