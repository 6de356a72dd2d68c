#include <orvi/core/MessageReader.h>

#include <orvi/core/CallStack.h>
#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>

namespace orvi {

namespace {

void reportUnknown(unsigned int classId)
{
    Log::error(L"Unknown message(%u).", classId);
    CallStack* stack = CallStack::getCallStack_fast();
    DumpCallStack_Log lines;
    stack->dump(lines);
    stack->destroy();
}

} // namespace

void MessageParser::parser(InputStream& stream) const
{
    if (isNull())
        THROW_EXCEPTION(-1, L"MessageParser::parser: the parser is null");
    const Callback called = _callback; // which may take this parser out of its reader and destroy it
    const Unknown::Handle_T<Message> message = _creator();
    if (message.isNull())
        THROW_EXCEPTION(-1, L"MessageParser::parser: the creator makes no message");
    message->importFrom(stream);
    called(message);
}

bool MessageReader::installMessageParser(const MessageParser& parser)
{
    _parsers[parser.getClassId()] = parser;
    return true;
}

MessageReader& MessageReader::operator+=(const MessageParser& parser)
{
    installMessageParser(parser);
    return *this;
}

void MessageReader::uninstallMessageParser(unsigned int classId) { _parsers.erase(classId); }

void MessageReader::uninstallMessageParser(const MessageParser& parser)
{
    uninstallMessageParser(parser.getClassId());
}

MessageReader& MessageReader::operator-=(const MessageParser& parser)
{
    uninstallMessageParser(parser);
    return *this;
}

void MessageReader::clearMessageParser()
{
    _parsers.clear();
    _unknownPackageHandler.setNull();
}

const MessageParser& MessageReader::getMessageParser(const unsigned int& classId) const
{
    const auto found = _parsers.find(classId);
    return found != _parsers.end() ? found->second : _nullParser;
}

bool MessageReader::analyse(InputStream& stream)
{
    while (stream.available() > 0) {
        unsigned int classId = 0;
        stream >> classId;
        if (!analyse(MessagePackage{classId, stream}))
            return false;
    }
    return true;
}

bool MessageReader::analyse(const MessagePackage& package)
{
    const MessageParser& parser = getMessageParser(package.classId);
    if (!parser.isNull()) {
        parser.parser(package.stream);
        return true;
    }
    // Held for the call, in which the handler may replace itself.
    const UnknownPackageHandler handler = _unknownPackageHandler;
    if (!handler.isNull() && handler(package))
        return true;
    reportUnknown(package.classId);
    return false;
}

Unknown::Handle_T<Message> MessageReader::pop(InputStream& stream)
{
    try {
        unsigned int classId = 0;
        stream >> classId;
        const Unknown::Handle_T<Message> message = Unknown::RtFactory::createClassInstance(classId);
        if (message.isNull()) {
            Log::error(L"Error ClassId! %u", classId);
            return {};
        }
        message->importFrom(stream);
        return message;
    } catch (const Exception& exception) {
        exception.report();
        return {};
    }
}

} // namespace orvi
