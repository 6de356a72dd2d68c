#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Mutex.h>
#include <orvi/core/Stream.h>

namespace orvi {

/** Joins a source and a sink into one IO: every call goes to its half, and the half's answer comes back
    untouched. Holds a reference on both halves, which may be one object; copies share them. A half that is
    null must not be used. As safe for threads as its halves. */
class ORVI_API Pipe : public IO {
public:
    static Handle_T<Pipe> createInstance(Input* input, Output* output);

    int available() const override;
    int peek(void* buffer, int size) const override;
    int read(void* buffer, int size) override;
    int write(const void* data, int size) override;

private:
    Pipe(Input* input, Output* output) noexcept
        : _input(input)
        , _output(output)
    {}

    Unknown::Handle_T<Input> _input;
    Unknown::Handle_T<Output> _output;
};

/** A Pipe that holds a lock during each call, one for each half. Give two pipes on one store the same mutex
    for it:

        a = MutexPipe::createInstance(first, firstMutex, second, secondMutex);
        b = MutexPipe::createInstance(second, secondMutex, first, firstMutex);

    joins two threads in both directions. Single calls exclude each other, sequences do not: `available` and
    the `read` behind it may see different states. */
class ORVI_API MutexPipe : public IO {
public:
    static Handle_T<MutexPipe> createInstance(Input* input, const SharedPtr<Mutex>& inputMutex,
                                              Output* output, const SharedPtr<Mutex>& outputMutex);

    int available() const override;
    int peek(void* buffer, int size) const override;
    int read(void* buffer, int size) override;
    int write(const void* data, int size) override;

private:
    MutexPipe(Input* input, const SharedPtr<Mutex>& inputMutex, Output* output,
              const SharedPtr<Mutex>& outputMutex) noexcept
        : _input(input)
        , _inputMutex(inputMutex)
        , _output(output)
        , _outputMutex(outputMutex)
    {}

    Unknown::Handle_T<Input> _input;
    SharedPtr<Mutex> _inputMutex;
    Unknown::Handle_T<Output> _output;
    SharedPtr<Mutex> _outputMutex;
};

} // namespace orvi
