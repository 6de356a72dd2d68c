#pragma once
#include "AppWord.h"
#include "memory/StreamWait.h"

#include <atomic>
#include <map>

namespace orvi {

/** The pipes of a box: those that it serves, in turns, and those that wait to join or to leave.

    What a pipe needs on its way through is taken when it is added, so that it can join, leave and be given up without
    memory. */
class AppClients {
public:
    /** `place` is where the box waits. */
    explicit AppClients(platform::LoopWait& place) noexcept
        : _place(place)
    {}
    ~AppClients();
    AppClients(const AppClients&) = delete;
    AppClients& operator=(const AppClients&) = delete;

    /** Any thread. Throws std::bad_alloc with nothing changed. */
    void add(AppPipe* pipe);
    /** Any thread. A pipe that nobody has added is none to leave. */
    void remove(AppPipe* pipe) noexcept;

    // What follows is for the run thread alone.

    /** Whether pipes wait. */
    bool isMoveDue() const noexcept { return _hasChanges.load(); }
    /** Lets pipes join and leave. A pipe whose handling throws is done with; the next call goes on with the others. */
    void move();

    /** How many are served. */
    int count() const noexcept { return _count; }
    /** Whether a pipe is among them that does not tell when a text comes. */
    bool hasSilent() const noexcept { return _silent > 0; }
    /** Counts pipes that joined or left. */
    unsigned int changes() const noexcept { return _changes; }
    /** The pipe whose turn it is; there must be one. */
    AppPipe* next() noexcept;

    /** Ends the serving of one pipe, with a farewell; false when there is none left. */
    bool dismissNext();

private:
    struct Client {
        explicit Client(AppPipe* served)
            : pipe(served)
        {}

        const Unknown::Handle_T<AppPipe> pipe;
        // Under the lock.
        bool joins = false;
        bool leaves = false;
        AppWord hello; // of the last one who asked
        AppWord bye;
        // The run thread's own: the ring of those served; null outside.
        Client* next = nullptr;
        Client* previous = nullptr;
        StreamWait wait{};
        bool tells = false; // when a text comes
    };
    struct Change {
        Client* client = nullptr;
        bool joins = false;
        bool leaves = false;
        AppWord hello{};
        AppWord bye{};
    };

    Change takeChange(AppPipe* behind);
    void carryOut(Change& change);
    void link(Client& client) noexcept;
    void unlink(Client& client) noexcept;
    void forget(Client& client);

    Mutex _mutex; // guards the map and the requests; nothing is taken under it
    std::map<AppPipe*, Client> _clients;
    std::atomic<bool> _hasChanges = false;

    platform::LoopWait& _place;
    int _count = 0;
    int _silent = 0;
    unsigned int _changes = 0;
    Client* _turn = nullptr;
};

} // namespace orvi
