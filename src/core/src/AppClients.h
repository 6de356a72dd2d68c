#pragma once
#include <orvi/core/App.h>

#include <atomic>
#include <map>

namespace orvi {

/** The pipes of a box: those that it serves, in turns, and those that wait to join or to leave.

    What a pipe needs on its way through is taken when it is added, so that it can join, leave and be given up without
    memory. A word of the protocol that its stream does not take is tried again in later passes, for a second or so. */
class AppClients {
public:
    AppClients() = default;
    ~AppClients();
    AppClients(const AppClients&) = delete;
    AppClients& operator=(const AppClients&) = delete;

    /** Any thread. Throws std::bad_alloc with nothing changed. */
    void add(AppPipe* pipe);
    /** Any thread. A pipe that nobody has added is none to leave. */
    void remove(AppPipe* pipe) noexcept;

    // What follows is for the run thread alone.

    /** Whether pipes wait that may be moved now. */
    bool isMoveDue() const noexcept { return _hasChanges.load(std::memory_order_acquire) && !isPausing(); }
    /** Lets pipes join and leave. What throws in it has had its try, and the others get theirs in the next one. */
    void move();

    /** How many are served. */
    int count() const noexcept { return _count; }
    /** Counts pipes that joined or left. */
    unsigned int changes() const noexcept { return _changes; }
    /** The pipe whose turn it is; null without pipes, and for one that waits for its greeting. */
    AppPipe* next() noexcept;

    /** Ends the serving of one pipe, with a farewell; false when there is none left. */
    bool dismissNext();

private:
    struct Client {
        explicit Client(AppPipe* served)
            : pipe(served)
        {}

        const Unknown::Handle_T<AppPipe> pipe;
        // Requests, under the lock.
        bool joins = false;
        bool leaves = false;
        // The run thread's own.
        bool isGreeted = false;
        bool owesFarewell = false;
        int failures = 0;       // of the word that is to be told
        Client* next = nullptr; // in the ring of those served; null outside
        Client* previous = nullptr;
    };
    struct Change {
        Client* client = nullptr;
        bool joins = false;
        bool leaves = false;
    };

    bool isPausing() const noexcept;
    Change takeChange(AppPipe* behind);
    void carryOut(const Change& change);
    void postpone(const Change& change);
    bool tell(Client& client, const char* word);
    void link(Client& client) noexcept;
    void unlink(Client& client) noexcept;
    void forget(Client& client);

    Mutex _mutex; // guards the map and the requests; nothing is taken under it
    std::map<AppPipe*, Client> _clients;
    unsigned int _requests = 0;
    std::atomic<bool> _hasChanges = false;

    bool _hasFailed = false; // in the last move
    unsigned int _failedAt = 0;
    int _count = 0;
    unsigned int _changes = 0;
    Client* _turn = nullptr;
};

} // namespace orvi
