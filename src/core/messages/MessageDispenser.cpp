#include <orvi/core/MessageDispenser.h>

#include <orvi/core/Exception.h>

namespace orvi::messaging {

namespace {

String refusal(const std::type_info& result, const String& message)
{
    String text;
    text.format(L"%s MessageHandler::dispatchMessage( %s )", typeName(result).getBuffer(),
                message.getBuffer());
    return text;
}

} // namespace

void refuseMessage(const Message* message, const std::type_info& result)
{
    THROW_EXCEPTION(-1, refusal(result, message != nullptr ? typeName(typeid(*message)) : String(L"null")));
}

void refuseClass(const Message& message, const std::type_info& wanted)
{
    String text;
    text.format(L"MessageHandler: %s is no %s", typeName(typeid(message)).getBuffer(),
                typeName(wanted).getBuffer());
    THROW_EXCEPTION(-1, text);
}

} // namespace orvi::messaging
