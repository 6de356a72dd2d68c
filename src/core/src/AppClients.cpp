#include "AppClients.h"

#include <orvi/core/Time.h>

#include <utility>

namespace orvi {

namespace {

constexpr unsigned int pauseMillis = 50;
constexpr int mostFailures = 20;

} // namespace

AppClients::~AppClients() = default;

void AppClients::add(AppPipe* pipe)
{
    const MutexGuard guard(_mutex);
    _clients.try_emplace(pipe, pipe).first->second.joins = true;
    ++_requests;
    _hasChanges = true;
}

void AppClients::remove(AppPipe* pipe) noexcept
{
    const MutexGuard guard(_mutex);
    const auto found = _clients.find(pipe);
    if (found == _clients.end())
        return;
    found->second.leaves = true;
    ++_requests;
    _hasChanges = true;
}

/** Whether a word has just failed, and memory or a stream gets the time to recover. */
bool AppClients::isPausing() const noexcept { return _hasFailed && getTimeTick() - _failedAt < pauseMillis; }

void AppClients::move()
{
    _hasFailed = false;
    unsigned int requests = 0;
    {
        const MutexGuard guard(_mutex);
        requests = _requests;
    }
    // By address: a pipe that tells its word may let others come and go.
    AppPipe* last = nullptr;
    for (Change change = takeChange(last); change.client != nullptr; change = takeChange(last)) {
        last = change.client->pipe;
        carryOut(change);
    }
    const MutexGuard guard(_mutex);
    if (!_hasFailed && requests == _requests)
        _hasChanges = false;
}

/** The next request in the order of addresses; without a client when there is none. */
AppClients::Change AppClients::takeChange(AppPipe* behind)
{
    const MutexGuard guard(_mutex);
    for (auto entry = _clients.upper_bound(behind); entry != _clients.end(); ++entry) {
        Client& client = entry->second;
        if (client.joins || client.leaves)
            return {&client, std::exchange(client.joins, false), std::exchange(client.leaves, false)};
    }
    return {};
}

void AppClients::carryOut(const Change& change)
{
    Client& client = *change.client;
    if (change.joins) {
        if (client.next == nullptr)
            link(client);
        client.isGreeted = true; // before the word: what throws there comes once
        if (!tell(client, "$HELLO")) {
            client.isGreeted = false;
            postpone(change);
            return;
        }
    }
    if (!change.leaves)
        return;
    if (client.next != nullptr) {
        unlink(client);
        client.owesFarewell = true;
    }
    if (client.owesFarewell && !tell(client, "$BYE"))
        postpone({&client, false, true});
    else
        forget(client);
}

void AppClients::postpone(const Change& change)
{
    const MutexGuard guard(_mutex);
    change.client->joins |= change.joins;
    change.client->leaves |= change.leaves;
    _hasFailed = true;
    _failedAt = getTimeTick();
}

/** False when the word is to be tried again. A stream that never takes it does not hold up the others for ever. */
bool AppClients::tell(Client& client, const char* word)
{
    if (!client.pipe->tell(word) && ++client.failures < mostFailures)
        return false;
    client.failures = 0;
    return true;
}

void AppClients::link(Client& client) noexcept
{
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
    client.isGreeted = client.owesFarewell = false;
    if (!client.joins)
        last = _clients.extract(client.pipe);
}

AppPipe* AppClients::next() noexcept
{
    if (_turn == nullptr)
        return nullptr;
    const Client& client = *std::exchange(_turn, _turn->next);
    return client.isGreeted ? static_cast<AppPipe*>(client.pipe) : nullptr;
}

bool AppClients::dismissNext()
{
    if (_turn == nullptr)
        return false;
    Client& client = *_turn;
    const Unknown::Handle_T<AppPipe> pipe = client.pipe;
    unlink(client);
    if (!client.isGreeted) { // the request to greet it is over, too
        const MutexGuard guard(_mutex);
        client.joins = false;
    }
    forget(client);
    pipe->tell("$BYE");
    return true;
}

} // namespace orvi
