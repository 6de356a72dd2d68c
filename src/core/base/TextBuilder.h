#pragma once
#include "StringAccess.h"
#include "WholeTexts.h"
#include "platform/base/LargeBlock.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <vector>

namespace orvi {

/** Collects a text of unknown length, and hands it over in one block.

    A short text stays in the object itself, so an object is large and belongs on the stack. A long one is
    gathered in pieces and copied once, at the end: a block that grows would be copied, or moved about by the
    system, all the time. */
template <class T>
class TextBuilder {
public:
    TextBuilder() noexcept {} // not defaulted: nobody wants the room cleared
    TextBuilder(const TextBuilder&) = delete;
    TextBuilder& operator=(const TextBuilder&) = delete;

    /** Tells that some `elements` will come: in one piece, which then becomes the block. Without memory for
        them nothing happens. */
    void expect(std::size_t elements)
    {
        if (size() == 0 && _pieces.empty() && elements > smallCapacity)
            addPiece(std::min(elements, maxExpected));
    }

    /** Room for at least `elements` behind the text so far. Null, and a line in the log, without memory and
        when the text has outgrown a string. */
    T* room(std::size_t elements)
    {
        return static_cast<std::size_t>(_end - _at) >= elements || grow(elements) ? _at : nullptr;
    }
    /** Takes in the first elements of the room. */
    void add(std::size_t elements) { _at += elements; }

    /** Of a failure: whether it is not memory that lacks. */
    bool isTooLong() const { return size() > maxElements; }

    /** Gives the text to `target` and is not used any more. False, and a line in the log, as above. */
    bool finish(String_T<T>& target)
    {
        const std::size_t total = size();
        if (total > maxElements)
            return fail(total);
        if (_pieces.size() == 1 && total > smallCapacity && _before == 0)
            return adopt(target, total);
        T* copy = StringAccess<T>::prepare(target, total);
        if (copy == nullptr || total == 0)
            return copy != nullptr;
        const std::size_t last = static_cast<std::size_t>(_at - _begin);
        copy = append(copy, _small, _pieces.empty() ? last : _smallSize);
        for (Piece& piece : _pieces) {
            copy = append(copy, textOf(piece.block.get()), &piece == &_pieces.back() ? last : piece.size);
            piece.block.reset(); // the copy's memory may come from here
        }
        return true;
    }

private:
    struct Free {
        void operator()(void* block) const noexcept { std::free(block); }
    };
    struct Piece {
        std::unique_ptr<void, Free> block; // with room for a string's header in front and a terminator behind
        std::size_t size;                  // set when the next piece begins
    };

    static constexpr std::size_t smallCapacity = 8192;
    static constexpr std::size_t maxPiece = 2 * platform::largeBlockBytes / sizeof(T);
    static constexpr std::size_t maxExpected = std::size_t(32) << 20; // whoever says more may mislead
    static constexpr std::size_t headerBytes = StringAccess<T>::headerBytes;
    // What getBufferLength can tell, terminator included.
    static constexpr std::size_t maxElements = std::numeric_limits<int>::max() / sizeof(T) - 1;

    static std::size_t bytesFor(std::size_t elements) { return headerBytes + (elements + 1) * sizeof(T); }
    static T* textOf(void* block) { return reinterpret_cast<T*>(static_cast<char*>(block) + headerBytes); }
    static T* append(T* target, const T* text, std::size_t elements)
    {
        std::memcpy(target, text, elements * sizeof(T));
        return target + elements;
    }

    std::size_t size() const { return _before + static_cast<std::size_t>(_at - _begin); }

    bool grow(std::size_t elements)
    {
        // Callers ask for what they may need at most: the limit is for what they add.
        const std::size_t capacity =
            std::max(std::min(4 * static_cast<std::size_t>(_end - _begin), maxPiece), elements);
        return size() <= maxElements ? addPiece(capacity) || fail(capacity) : fail(size());
    }

    bool addPiece(std::size_t capacity)
    {
        const std::size_t bytes = bytesFor(capacity);
        std::unique_ptr<void, Free> block(std::malloc(bytes));
        if (block == nullptr)
            return false;
        if (bytes >= platform::largeBlockBytes)
            platform::prepareLargeBlock(block.get(), bytes);
        const auto used = static_cast<std::size_t>(_at - _begin);
        T* text = textOf(block.get());
        try {
            _pieces.push_back({std::move(block), 0});
        } catch (const std::bad_alloc&) {
            return false;
        }
        (_pieces.size() == 1 ? _smallSize : _pieces[_pieces.size() - 2].size) = used;
        _before += used;
        _begin = _at = text;
        _end = text + capacity;
        return true;
    }

    /** Makes the only piece the block. Much room to spare is given back; with a little of it the next text of
        the kind finds the same memory again, which the allocator else takes fresh from the system. */
    bool adopt(String_T<T>& target, std::size_t elements)
    {
        void* block = _pieces.front().block.release();
        if (static_cast<std::size_t>(_end - _at) > elements / 16) {
            if (void* const exact = std::realloc(block, bytesFor(elements)))
                block = exact;
        }
        StringAccess<T>::adopt(target, block, elements);
        return true;
    }

    static bool fail(std::size_t elements)
    {
        missText(bytesFor(elements));
        return false;
    }

    std::vector<Piece> _pieces; // behind what is in _small
    std::size_t _smallSize = 0;
    std::size_t _before = 0; // elements in front of the piece that is being filled
    T _small[smallCapacity];
    T* _begin = _small; // of the piece that is being filled
    T* _at = _small;
    T* _end = _small + smallCapacity;
};

} // namespace orvi
