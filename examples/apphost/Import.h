#pragma once
#include "Commands.h"
#include "Record.h"

namespace apphost {

// Documents into objects, all or nothing: the library takes over what it can and reports the rest to the log;
// here the command then fails, with those reports and with what did not arrive.

/** A new object of the class that the document names; null when something is wrong. */
orvi::Handle_T<Record> createRecord(const Call& call, const orvi::JsonValue& document);
/** A copy of `record` with the document's properties taken over; null when something is wrong. */
orvi::Handle_T<Record> changeRecord(const Call& call, const Record& record, const orvi::JsonValue& document);

} // namespace apphost
