#pragma once
#include <orvi/core/Stream.h>

namespace exchange {

/** A connection to another process as a source and sink of the library: a socket, or a pipe for each direction.

    Nothing here waits but wait(). The program has to ignore SIGPIPE, which else ends it when the peer is gone. */
class DescriptorIO : public orvi::IO {
public:
    enum class State {
        Open,
        Ended,    // the peer has closed this direction, or has died
        Failed,   // getError() has the reason
        Exhausted // more came than allowed
    };

    /** Takes over two open descriptors, which may be the same, and sets them non-blocking. No call moves more than
        `piece` bytes. */
    static orvi::Handle_T<DescriptorIO> createInstance(int input, int output, int piece);

    int available() const override;
    int peek(void* buffer, int size) const override;
    int read(void* buffer, int size) override;
    int write(const void* data, int size) override;

    /** Lets `read` deliver so many bytes before it fails with State::Exhausted. At first it delivers none. */
    void allow(int bytes) { _allowance = bytes; }

    /** Waits, without end, until something can be read, or also until something can be written. */
    void wait(bool alsoToWrite) const;

    /** A direction that is not open has failed its last operation, and fails every one to come. */
    State getInputState() const { return _inputState; }
    State getOutputState() const { return _outputState; }
    /** The errno of the last failure. */
    int getError() const { return _error; }

protected:
    DescriptorIO(int input, int output, int piece);
    ~DescriptorIO() override;

private:
    void fill() const;
    State judge() const;

    static constexpr int capacity = 65536;

    int _input;
    int _output;
    int _piece;
    int _allowance = 0;

    // Asking what is available reads ahead, since a pipe does not let anybody look without taking.
    mutable State _inputState = State::Open;
    mutable int _error = 0;
    mutable int _begin = 0; // of what lies in the buffer
    mutable int _end = 0;
    mutable unsigned char _bytes[capacity];

    State _outputState = State::Open;
};

} // namespace exchange
