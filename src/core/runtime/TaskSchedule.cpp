#include "TaskSchedule.h"

#include <orvi/core/Tick.h>

#include <algorithm>
#include <typeinfo>
#include <utility>

namespace orvi {

System::TaskStatus::TaskStatus(System* owner, Task* started)
    : system(owner)
    , task(started)
    // By address, which compares faster than by name: the library alone makes objects of just these classes.
    , onlyRests(&typeid(*started) == &typeid(Yield))
    , letsRest(&typeid(*started) == &typeid(Rest))
{}

// ---- Heap

void System::TaskSchedule::Heap::put(std::size_t index, const Entry& entry) noexcept
{
    _entries[index] = entry;
    entry.status->index = index;
}

void System::TaskSchedule::Heap::rise(std::size_t index, const Entry& entry) noexcept
{
    while (index > 0) {
        const std::size_t parent = (index - 1) / 2;
        if (_entries[parent].key <= entry.key)
            break;
        put(index, _entries[parent]);
        index = parent;
    }
    put(index, entry);
}

void System::TaskSchedule::Heap::sink(std::size_t index, const Entry& entry) noexcept
{
    for (;;) {
        std::size_t child = 2 * index + 1;
        if (child >= _entries.size())
            break;
        if (child + 1 < _entries.size() && _entries[child + 1].key < _entries[child].key)
            ++child;
        if (entry.key <= _entries[child].key)
            break;
        put(index, _entries[child]);
        index = child;
    }
    put(index, entry);
}

void System::TaskSchedule::Heap::push(std::uint64_t key, TaskStatus& status) noexcept
{
    _entries.push_back({key, &status});
    rise(_entries.size() - 1, {key, &status});
}

void System::TaskSchedule::Heap::remove(std::size_t index) noexcept
{
    const Entry last = _entries.back();
    _entries.pop_back();
    if (index == _entries.size())
        return;
    if (index > 0 && last.key < _entries[(index - 1) / 2].key)
        rise(index, last);
    else
        sink(index, last);
}

// ---- EveryPass

std::size_t System::TaskSchedule::EveryPass::find(std::uint64_t order) const noexcept
{
    const auto slot = std::lower_bound(_slots.begin(), _slots.end(), order,
                                       [](const Slot& one, std::uint64_t key) { return one.order < key; });
    return static_cast<std::size_t>(slot - _slots.begin());
}

std::size_t System::TaskSchedule::EveryPass::skipEmpty(std::size_t index) const noexcept
{
    while (index < _slots.size() && _slots[index].status == nullptr)
        ++index;
    return index;
}

std::size_t System::TaskSchedule::EveryPass::behind(std::uint64_t order) const noexcept
{
    return skipEmpty(find(order + 1));
}

void System::TaskSchedule::EveryPass::clear() noexcept
{
    _slots.clear();
    _empty = 0;
    ++_changes;
}

void System::TaskSchedule::EveryPass::add(TaskStatus& status) noexcept
{
    ++_changes;
    std::size_t index = find(status.order);
    if (index < _slots.size() && _slots[index].order == status.order) {
        _slots[index].status = &status;
        --_empty;
        return;
    }
    if (_slots.size() == _slots.capacity()) { // half of the slots are empty
        sweep();
        index = find(status.order);
    }
    _slots.insert(_slots.begin() + static_cast<std::ptrdiff_t>(index), {status.order, &status});
}

void System::TaskSchedule::EveryPass::remove(const TaskStatus& status) noexcept
{
    _slots[find(status.order)].status = nullptr;
    ++_empty;
}

void System::TaskSchedule::EveryPass::sweep() noexcept
{
    std::erase_if(_slots, [](const Slot& slot) { return slot.status == nullptr; });
    _empty = 0;
    ++_changes;
}

void System::TaskSchedule::EveryPass::sweepIfSparse() noexcept
{
    if (_empty > 16 && _empty > 2 * (_slots.size() - _empty))
        sweep();
}

// ---- TaskSchedule

System::TaskSchedule::TaskSchedule() { _passes.reserve(4); }

void System::TaskSchedule::reserve(std::size_t count)
{
    if (count <= _room)
        return;
    count = std::max(count, 2 * _room);
    _everyPass.reserve(count);
    _timed.reserve(count);
    _due.reserve(count);
    _skipped.reserve(count);
    _room = count;
}

std::uint64_t System::TaskSchedule::timeToNext() const noexcept
{
    if (!_due.isEmpty())
        return 0;
    const std::uint64_t next = _timed.isEmpty() ? never : std::max(_timed.topKey(), _clock) - _clock;
    return _everyPass.isEmpty() ? next : std::min<std::uint64_t>(next, 1);
}

void System::TaskSchedule::place(TaskStatus& status) noexcept
{
    const unsigned int limit = status.limit();
    if (status.isDue) {
        status.place = TaskStatus::Place::Due;
        _due.push(status.order, status);
    } else if (limit == 0) {
        status.place = TaskStatus::Place::EveryPass;
        _everyPass.add(status);
    } else {
        status.place = TaskStatus::Place::Timed;
        _timed.push(status.since + limit, status);
    }
}

void System::TaskSchedule::takeOut(TaskStatus& status) noexcept
{
    switch (std::exchange(status.place, TaskStatus::Place::Nowhere)) {
    case TaskStatus::Place::EveryPass:
        _everyPass.remove(status);
        break;
    case TaskStatus::Place::Timed:
        _timed.remove(status.index);
        break;
    case TaskStatus::Place::Due:
        _due.remove(status.index);
        break;
    case TaskStatus::Place::Skipped:
        _skipped.back()->index = status.index;
        _skipped[status.index] = _skipped.back();
        _skipped.pop_back();
        break;
    case TaskStatus::Place::Nowhere:
        break;
    }
}

void System::TaskSchedule::add(TaskStatus& status) noexcept
{
    if (status.letsRest)
        return;
    status.since = _clock;
    place(status);
}

void System::TaskSchedule::remove(TaskStatus& status) noexcept { takeOut(status); }

void System::TaskSchedule::makeDue(TaskStatus& status) noexcept
{
    if (std::exchange(status.isDue, true) || status.place == TaskStatus::Place::Nowhere)
        return;
    takeOut(status);
    place(status);
}

void System::TaskSchedule::update(TaskStatus& status) noexcept
{
    if (status.place == TaskStatus::Place::Nowhere ||
        (status.place == TaskStatus::Place::EveryPass && status.limit() == 0))
        return;
    takeOut(status);
    place(status);
}

void System::TaskSchedule::beginPass(unsigned int deltaMs)
{
    _passes.push_back({0, deltaMs, _everyPass.changes(), _everyPass.behind(0)});
    _clock += deltaMs;
    returnSkipped();
}

System::TaskStatus* System::TaskSchedule::search() noexcept
{
    Pass& pass = _passes.back();
    while (!_timed.isEmpty() && _timed.topKey() <= _clock) {
        TaskStatus& status = _timed.top();
        _timed.remove(0);
        status.place = TaskStatus::Place::Due;
        _due.push(status.order, status);
    }
    while (!_due.isEmpty() && _due.topKey() <= pass.order) {
        TaskStatus& status = _due.top();
        _due.remove(0);
        status.place = TaskStatus::Place::Skipped;
        status.index = _skipped.size();
        _skipped.push_back(&status);
    }
    pass.everyPass = pass.changes == _everyPass.changes() ? _everyPass.skipEmpty(pass.everyPass)
                                                          : _everyPass.behind(pass.order);
    pass.changes = _everyPass.changes();
    TaskStatus* status = _everyPass.at(pass.everyPass);
    if (!_due.isEmpty() && (status == nullptr || _due.topKey() < status->order)) {
        status = &_due.top();
        _due.remove(0);
        status->place = TaskStatus::Place::Nowhere;
    } else if (status != nullptr) {
        ++pass.everyPass;
    }
    if (status != nullptr)
        pass.order = status->order;
    return status;
}

void System::TaskSchedule::passOver(TaskStatus& status) noexcept
{
    if (status.place == TaskStatus::Place::Nowhere)
        place(status);
    else
        update(status);
}

void System::TaskSchedule::returnSkipped() noexcept
{
    for (TaskStatus* status : _skipped)
        place(*status);
    _skipped.clear();
}

void System::TaskSchedule::endPass() noexcept
{
    returnSkipped();
    _passes.pop_back();
    if (_passes.empty())
        _everyPass.sweepIfSparse();
}

void System::TaskSchedule::losePasses(std::size_t depth, TaskStatus* first) noexcept
{
    if (_passes.size() <= depth)
        return;
    for (; _passes.size() > depth; _passes.pop_back()) {
        for (TaskStatus* status = first; status != nullptr; status = status->next) {
            if (status->order > _passes.back().order)
                status->since += _passes.back().delta;
        }
    }
    _everyPass.clear();
    _timed.clear();
    _due.clear();
    _skipped.clear();
    for (TaskStatus* status = first; status != nullptr; status = status->next) {
        if (status->place != TaskStatus::Place::Nowhere) // or the pass has not ended in which it was started
            place(*status);
    }
}

} // namespace orvi
