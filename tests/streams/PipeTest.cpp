#include <orvi/core/Pipe.h>

#include "ByteIO.h"

#include <doctest/doctest.h>

#include <thread>

using namespace orvi;

TEST_CASE("a pipe reads back what was written to it")
{
    const auto store = ByteIO::create();
    const Handle_T<Pipe> pipe = Pipe::createInstance(store, store);
    char text[8];
    CHECK(pipe->read(text, 8) == 0);
    CHECK(pipe->write("abc", 3) == 3);
    CHECK(pipe->peek(text, 2) == 2);
    CHECK(pipe->available() == 3);
    CHECK(pipe->read(text, 8) == 3);
    CHECK(std::string(text, 3) == "abc");
}

TEST_CASE("a pipe and its copies keep the halves alive")
{
    const auto input = ByteIO::create();
    const auto output = ByteIO::create();
    Handle_T<Pipe> pipe = Pipe::createInstance(input, output);
    {
        const Pipe copy(*pipe);
        CHECK(copy.getReferenceCount() == 0);
        CHECK(input->getReferenceCount() == 3);
    }
    CHECK(output->getReferenceCount() == 2);
    pipe.setNull();
    CHECK(input->getReferenceCount() == 1);
    CHECK(output->getReferenceCount() == 1);
}

TEST_CASE("crosswise pipes join two threads")
{
    constexpr int count = 20000;
    const auto first = ByteIO::create();
    const auto second = ByteIO::create();
    const SharedPtr<Mutex> firstMutex(new Mutex);
    const SharedPtr<Mutex> secondMutex(new Mutex);
    const Handle_T<MutexPipe> near = MutexPipe::createInstance(first, firstMutex, second, secondMutex);
    const Handle_T<MutexPipe> far = MutexPipe::createInstance(second, secondMutex, first, firstMutex);

    // Sends the numbers and counts those that come from the other side in order.
    const auto talk = [](IO& io, int& right) {
        for (int sent = 0, received = 0; received < count;) {
            if (sent < count) {
                const auto byte = static_cast<unsigned char>(sent++ % 251);
                io.write(&byte, 1);
            }
            unsigned char answer = 0;
            if (io.available() > 0 && io.read(&answer, 1) == 1)
                right += answer == received++ % 251 ? 1 : 0;
        }
    };
    int nearRight = 0, farRight = 0;
    std::thread other([&] { talk(*far, farRight); });
    talk(*near, nearRight);
    other.join();
    CHECK(nearRight == count);
    CHECK(farRight == count);
}
