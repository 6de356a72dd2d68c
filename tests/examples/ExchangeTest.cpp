#include "../../examples/exchange/Messages.h"
#include "ByteIO.h"
#include "Program.h"
#include "TextPrinting.h"

namespace {

constexpr char sender[] = ORVI_EXCHANGE_SEND;
constexpr char receiver[] = ORVI_EXCHANGE_RECEIVE;

std::string lengthOf(int size) { return {reinterpret_cast<const char*>(&size), sizeof size}; }
std::string packet(const std::string& body) { return lengthOf(static_cast<int>(body.size())) + body; }

std::string item(int number)
{
    const auto message = exchange::Item::createInstance();
    message->number = number;
    message->text = L"a small text";
    const auto bytes = ByteIO::create();
    orvi::OutputStream stream(bytes);
    stream << message->getClassId();
    message->exportTo(stream);
    return bytes->bytes;
}

} // namespace

TEST_CASE("all items arrive by way of two pipes")
{
    const struct {
        std::string count; // 700000 have more bytes in all than a packet may have
        std::string options;
    } rows[] = {
        {"700000", ""}, {"20000", " --batch 10000 --piece 1237"}, {"300", " --batch 7 --piece 1"}, {"0", ""}};
    for (const auto& row : rows) {
        CAPTURE(row.count);
        const TempDirectory place;
        const std::string options = " --stdio" + row.options;
        const std::string script = "mkfifo there back; " + (receiver + options) + " <there >back & " +
                                   sender + options + " --count " + row.count + " >there <back && wait $!";
        const Outcome outcome = Program("/bin/sh", {"-c", script}, place.path()).finish();
        CHECK(outcome.status == 0);
        CHECK(outcome.has("sent " + row.count + ", confirmed " + row.count + "\n"));
        CHECK(outcome.has("received " + row.count + " in order\n"));
    }
}

TEST_CASE("either side may listen, at a path that goes away")
{
    const TempDirectory place;
    const std::string path = place / "meet";
    for (const bool isSender : {false, true}) {
        CAPTURE(isSender);
        Program listening(isSender ? sender : receiver, {"--listen", path, "--count", "20000"});
        listening.waitFor("listening at " + path + "\n");
        Program connecting(isSender ? receiver : sender, {"--connect", path, "--count", "20000"});
        CHECK(connecting.finish().status == 0);
        const Outcome outcome = listening.finish();
        CHECK(outcome.status == 0);
        CHECK(outcome.has(isSender ? "confirmed 20000\n" : "received 20000 in order\n"));
        CHECK(access(path.c_str(), F_OK) != 0);
    }
    const Outcome refused = Program(receiver, {"--connect", path}).finish();
    CHECK(refused.status == 1);
    CHECK(refused.has("cannot connect to '" + path + "': No such file"));
}

TEST_CASE("a peer that leaves is told from one that breaks the rules, whose end nobody waits for")
{
    const struct {
        const char* program;
        bool leaves;
        std::string bytes;
        const char* text;
    } rows[] = {
        {receiver, true, "", "gone, between two packets\nreceived 0 in"},
        {receiver, true, packet(item(1)) + packet("") + packet(item(2)), "packets\nreceived 2 in"},
        {receiver, true, packet(item(1) + item(2)).substr(0, 30), "middle of a packet\nreceived 0 in"},
        {receiver, false, packet(item(1)) + lengthOf(-2147483647 - 1), "packet size\nreceived 1 in"},
        {receiver, false, lengthOf(0x7FFFFFFF) + std::string(17 << 20, 'x'), "without a complete packet"},
        {receiver, false, packet(item(1) + std::string("\7\1\0\0", 4)), "unknown class 263\nreceived 1"},
        {receiver, false, packet(item(1) + item(2).substr(0, 3)), "message that cannot be read: "},
        {receiver, false, packet(item(1)) + packet(item(3)), "item 3 out of order\nreceived 1 in"},
        {sender, true, "", "gone, between two packets\nsent 10, confirmed 0\n"},
        {sender, false, lengthOf(-5), "packet size\nsent 10, confirmed 0\n"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.text);
        Program program(row.program, {"--stdio", "--count", "10"}, "/", row.bytes);
        if (row.leaves)
            program.closeInput();
        const Outcome outcome = program.finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == (row.leaves ? 2 : 3));
        CHECK(outcome.has(row.text));
    }
}
