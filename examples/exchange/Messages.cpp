#include "Messages.h"

namespace exchange {

ORVI_DEFINE_MESSAGE(Item)
{
    table.add(L"number", &Item::number);
    table.add(L"text", &Item::text);
}

ORVI_DEFINE_MESSAGE(Farewell) { table.add(L"count", &Farewell::count); }

ORVI_DEFINE_MESSAGE(Receipt) { table.add(L"count", &Receipt::count); }

ORVI_DEFINE_MESSAGE(Summary) { table.add(L"count", &Summary::count); }

} // namespace exchange
