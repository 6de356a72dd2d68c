#include <orvi/core/Message.h>

namespace orvi {

Unknown::Handle_T<Message> Message::createMessage_() { return createInstance(); }

Unknown::Handle_T<Message> Message::clone() const { return Unknown::clone(); }

void Message::importFrom(InputStream&) {}

void Message::exportTo(OutputStream&) const {}

// The time stamp of all classes of the library is that of Unknown.
ORVI_DEFINE_PROPERTY(Message) {} // NOLINT(bugprone-parent-virtual-call)

} // namespace orvi
