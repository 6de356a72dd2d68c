#include "AppClients.h"

#include <new>
#include <utility>

namespace orvi {

AppClients::~AppClients() = default;

void AppClients::add(AppPipe* pipe)
{
    AppWord hello, bye;
    if (!hello.reserve() || !bye.reserve())
        throw std::bad_alloc();
    const MutexGuard guard(_mutex);
    Client& client = _clients.try_emplace(pipe, pipe).first->second;
    client.joins = true;
    std::swap(client.hello, hello);
    std::swap(client.bye, bye);
    _hasChanges = true;
}

void AppClients::remove(AppPipe* pipe) noexcept
{
    const MutexGuard guard(_mutex);
    const auto found = _clients.find(pipe);
    if (found == _clients.end())
        return;
    found->second.leaves = true;
    _hasChanges = true;
}

void AppClients::move()
{
    _hasChanges = false; // set again by what comes meanwhile
    struct Rest {
        AppClients& clients;
        bool isDone = false;
        ~Rest()
        {
            if (!isDone)
                clients._hasChanges = true;
        }
    } rest{*this};
    // By address: others may come and go while a pipe is given its word.
    AppPipe* last = nullptr;
    for (Change change = takeChange(last); change.client != nullptr; change = takeChange(last)) {
        last = change.client->pipe;
        carryOut(change);
    }
    rest.isDone = true;
}

/** The next request in the order of addresses; without a client when there is none. */
AppClients::Change AppClients::takeChange(AppPipe* behind)
{
    const MutexGuard guard(_mutex);
    for (auto entry = _clients.upper_bound(behind); entry != _clients.end(); ++entry) {
        Client& client = entry->second;
        if (!client.joins && !client.leaves)
            continue;
        Change change{&client, std::exchange(client.joins, false), std::exchange(client.leaves, false)};
        if (change.joins)
            change.hello = std::move(client.hello);
        if (change.leaves)
            change.bye = std::move(client.bye);
        return change;
    }
    return {};
}

void AppClients::carryOut(Change& change)
{
    Client& client = *change.client;
    const Unknown::Handle_T<AppPipe> pipe = client.pipe;
    if (change.joins && client.next == nullptr)
        link(client);
    if (change.leaves) {
        if (client.next != nullptr)
            unlink(client);
        forget(client);
    }
    if (change.joins)
        change.hello.tell(*pipe, "$HELLO");
    if (change.leaves)
        change.bye.tell(*pipe, "$BYE");
}

void AppClients::link(Client& client) noexcept
{
    client.wait = StreamWait::at(_place);
    client.tells = client.pipe->addWait(client.wait);
    _silent += client.tells ? 0 : 1;
    if (_turn == nullptr) {
        client.next = client.previous = _turn = &client;
    } else { // behind the others
        client.next = _turn;
        client.previous = _turn->previous;
        client.previous->next = client.next->previous = &client;
    }
    ++_count;
    ++_changes;
}

void AppClients::unlink(Client& client) noexcept
{
    if (client.tells)
        client.pipe->removeWait(client.wait);
    else
        --_silent;
    client.next->previous = client.previous;
    client.previous->next = client.next;
    if (_turn == &client)
        _turn = client.next != &client ? client.next : nullptr;
    client.next = client.previous = nullptr;
    --_count;
    ++_changes;
}

/** Drops a client that is not served, unless it wants to come again. */
void AppClients::forget(Client& client)
{
    decltype(_clients)::node_type last; // the pipe goes without the lock
    const MutexGuard guard(_mutex);
    if (!client.joins)
        last = _clients.extract(client.pipe);
}

AppPipe* AppClients::next() noexcept { return std::exchange(_turn, _turn->next)->pipe; }

bool AppClients::dismissNext()
{
    if (_turn == nullptr)
        return false;
    Client& client = *_turn;
    const Unknown::Handle_T<AppPipe> pipe = client.pipe;
    AppWord bye;
    {
        const MutexGuard guard(_mutex);
        bye = std::move(client.bye);
    }
    unlink(client);
    forget(client);
    bye.tell(*pipe, "$BYE");
    return true;
}

} // namespace orvi
