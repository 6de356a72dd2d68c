#pragma once
#include <orvi/core/Message.h>

#include <cstdint>

namespace exchange {

// Sender:    Item 1, Item 2, ... Item N, Farewell N
// Receiver:  Receipt, now and then ...        Summary N

class Item : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Item, orvi::Message);

public:
    std::int64_t number = 0; // from 1 on, without a gap
    orvi::String text;
};

/** The sender has said everything. */
class Farewell : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Farewell, orvi::Message);

public:
    std::int64_t count = 0; // of items
};

/** How many items have come so far. */
class Receipt : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Receipt, orvi::Message);

public:
    std::int64_t count = 0;
};

/** The answer to a Farewell, and the last word: how many items came in all. */
class Summary : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Summary, orvi::Message);

public:
    std::int64_t count = 0;
};

} // namespace exchange
