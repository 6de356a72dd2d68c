#pragma once
#include <orvi/core/Log.h>

#include <cstddef>
#include <new>

namespace orvi {

/** Texts that this thread could not make for want of memory: it wraps. It counts where there is no memory: of the
    other models of thread-local storage some ask for theirs on first use. */
[[gnu::tls_model("initial-exec")]] inline constinit thread_local unsigned int lostTexts = 0;

/** For who could not make one of so many bytes. */
inline void missText(std::size_t bytes)
{
    ++lostTexts;
    Log::error(L"Allocate memory(%zu) error!", bytes);
}

/** Notices that a text could not be made. A String that lacks memory is empty, or keeps what it had, and tells the log
    alone: where a text that is missing would change what is done (a path, a key, the name of a class), look here before
    it is done. */
class WholeTexts {
public:
    bool areAll() const noexcept { return _before == lostTexts; }
    /** Throws std::bad_alloc when one is missing that was made since this object was. */
    void check() const
    {
        if (!areAll())
            throw std::bad_alloc();
    }

private:
    unsigned int _before = lostTexts;
};

} // namespace orvi
