#include <orvi/core/Pipe.h>

namespace orvi {

Handle_T<Pipe> Pipe::createInstance(Input* input, Output* output) { return new Pipe(input, output); }

int Pipe::available() const { return _input->available(); }

int Pipe::peek(void* buffer, int size) const { return _input->peek(buffer, size); }

int Pipe::read(void* buffer, int size) { return _input->read(buffer, size); }

int Pipe::write(const void* data, int size) { return _output->write(data, size); }

Handle_T<MutexPipe> MutexPipe::createInstance(Input* input, const SharedPtr<Mutex>& inputMutex,
                                              Output* output, const SharedPtr<Mutex>& outputMutex)
{
    return new MutexPipe(input, inputMutex, output, outputMutex);
}

int MutexPipe::available() const
{
    const MutexGuard guard(*_inputMutex);
    return _input->available();
}

int MutexPipe::peek(void* buffer, int size) const
{
    const MutexGuard guard(*_inputMutex);
    return _input->peek(buffer, size);
}

int MutexPipe::read(void* buffer, int size)
{
    const MutexGuard guard(*_inputMutex);
    return _input->read(buffer, size);
}

int MutexPipe::write(const void* data, int size)
{
    const MutexGuard guard(*_outputMutex);
    return _output->write(data, size);
}

} // namespace orvi
