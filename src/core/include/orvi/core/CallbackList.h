#pragma once
#include <orvi/core/Callback.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <list>
#include <unordered_map>

namespace orvi {

/** Callbacks in the order in which they came, none twice, for whoever calls them all: the list may change
    while that is under way. To add, find and remove one takes the same short time in a list of any length, as
    long as the callbacks tell their addresses.

    A copy has the same callbacks. One thread at a time. */
template <class R, class A>
class CallbackList {
    struct Entry {
        CallbackHandler<R, A> callback;
        bool removed = false; // but somebody walks: it stays in its place until that ends
    };
    using Entries = std::list<Entry>;

public:
    using Callback = CallbackHandler<R, A>;
    using Place = typename Entries::iterator;

    /** A pass over the list: make one before `first`. What stands in the list keeps its place and its callback
        for as long, in it or not; lives no longer than the list. */
    class Walk {
    public:
        explicit Walk(CallbackList& list) noexcept
            : _list(list)
        {
            ++_list._walks;
        }
        ~Walk()
        {
            if (--_list._walks == 0 && _list._hasRemoved)
                _list.sweep();
        }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;

    private:
        CallbackList& _list;
    };

    CallbackList() = default;
    CallbackList(const CallbackList& other) { addAll(other); }
    CallbackList& operator=(const CallbackList& other)
    {
        if (this != &other) {
            clear();
            addAll(other);
        }
        return *this;
    }

    bool isEmpty() const noexcept { return _byAddress.size() + _withoutAddress == 0; }

    /** Appends the callback unless an equal one is there. */
    void add(const Callback& callback)
    {
        if (find(callback) != _entries.end())
            return;
        Entries fresh(1, Entry{callback});
        const CallbackAddress address = callback.getAddress();
        if (address.isKnown())
            _byAddress.emplace(address, fresh.begin());
        else
            ++_withoutAddress;
        _entries.splice(_entries.end(), fresh);
    }

    /** Takes out the one that is equal, if there is one. */
    void remove(const Callback& callback)
    {
        const Place place = find(callback);
        if (place == _entries.end())
            return;
        if (const CallbackAddress address = place->callback.getAddress(); address.isKnown())
            _byAddress.erase(address);
        else
            --_withoutAddress;
        place->removed = true;
        if (_walks > 0)
            _hasRemoved = true;
        else
            sweep(place, std::next(place));
    }

    void clear()
    {
        _byAddress.clear();
        _withoutAddress = 0;
        for (Entry& entry : _entries)
            entry.removed = true;
        if (_walks > 0)
            _hasRemoved = true;
        else
            sweep();
    }

    /** The first place, and the one behind a place; end() when there is none. Null callbacks count. */
    Place first() { return skipRemoved(_entries.begin()); }
    Place next(Place place) { return skipRemoved(std::next(place)); }
    Place skipRemoved(Place place)
    {
        return std::find_if(place, _entries.end(), [](const Entry& entry) { return !entry.removed; });
    }
    Place end() noexcept { return _entries.end(); }

private:
    struct Hash {
        std::size_t operator()(const CallbackAddress& address) const noexcept { return address.getHash(); }
    };

    void addAll(const CallbackList& other)
    {
        for (const Entry& entry : other._entries) {
            if (!entry.removed)
                add(entry.callback);
        }
    }

    Place find(const Callback& callback)
    {
        if (const CallbackAddress address = callback.getAddress(); address.isKnown()) {
            const auto found = _byAddress.find(address);
            if (found != _byAddress.end())
                return found->second;
            if (_withoutAddress == 0)
                return _entries.end();
        }
        return std::find_if(_entries.begin(), _entries.end(),
                            [&](const Entry& entry) { return !entry.removed && entry.callback == callback; });
    }

    void sweep()
    {
        _hasRemoved = false;
        sweep(_entries.begin(), _entries.end());
    }
    void sweep(Place from, Place to)
    {
        Entries gone; // behind all that is done here: what goes may come back to the list
        while (from != to) {
            const Place place = from++;
            if (place->removed)
                gone.splice(gone.end(), _entries, place);
        }
    }

    Entries _entries;
    std::unordered_map<CallbackAddress, Place, Hash> _byAddress;
    std::size_t _withoutAddress = 0;
    int _walks = 0;
    bool _hasRemoved = false;
};

} // namespace orvi
