#pragma once

namespace orvi::platform {

/** The one thread of a process that can be made to stand still from outside, wherever it is. */
class ServiceThread {
public:
    ServiceThread() = delete;

    /** Runs `body(nullptr)`. False, with the reason as the last error, when there is no thread to be had. For
        one thread at a time: join it before another start. */
    static bool start(void (*body)(void*));
    /** Waits for the end of the body. */
    static void join();

    /** Any thread, the body's own included. Once paused it stays so until resumed, however often either is
        called. Without a body under way: nothing. Locks that the body holds stay taken. */
    static void pause();
    static void resume();
};

} // namespace orvi::platform
