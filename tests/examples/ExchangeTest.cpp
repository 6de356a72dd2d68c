#include "../../examples/exchange/Messages.h"
#include "ByteIO.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int patienceMs = 60'000;
constexpr int itemBytes = 25; // a package of one item

const std::string sender = ORVI_EXCHANGE_SEND;
const std::string receiver = ORVI_EXCHANGE_RECEIVE;

/** A descriptor that is closed at the end, if not before. */
class Descriptor {
public:
    explicit Descriptor(int number)
        : _number(number)
    {}
    Descriptor(Descriptor&& other) noexcept
        : _number(std::exchange(other._number, -1))
    {}
    ~Descriptor() { close(); }
    operator int() const { return _number; }
    void close()
    {
        if (_number >= 0)
            ::close(_number);
        _number = -1;
    }

private:
    int _number;
};

struct Pair {
    Descriptor first; // of a pipe, that to read from
    Descriptor second;
};

Pair makePipe()
{
    int ends[2];
    REQUIRE(pipe2(ends, O_CLOEXEC) == 0);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Pair makeSockets()
{
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

bool waitToRead(int descriptor)
{
    pollfd source = {descriptor, POLLIN, 0};
    return poll(&source, 1, patienceMs) == 1;
}

/** Up to `size` bytes; less at the end. */
std::string readBytes(int descriptor, std::size_t size)
{
    std::string bytes(size, 0);
    std::size_t got = 0;
    while (got < size) {
        REQUIRE(waitToRead(descriptor));
        const ssize_t count = read(descriptor, bytes.data() + got, size - got);
        if (count <= 0)
            break;
        got += static_cast<std::size_t>(count);
    }
    bytes.resize(got);
    return bytes;
}

struct Outcome {
    int status; // negative, the signal that ended it
    std::string text;
    bool has(std::string_view part) const { return text.find(part) != std::string::npos; }
};

/** One of the programs, with descriptors of the test's as its standard input and output. */
class Child {
public:
    Child(const std::string& program, int input, int output, std::vector<std::string> options = {"--stdio"})
        : Child(program, input, output, std::move(options), makePipe())
    {}
    ~Child()
    {
        if (_process > 0) { // a check has failed before its end
            kill();
            waitpid(_process, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void kill() const { ::kill(_process, SIGKILL); }
    /** Reads what it says until `text` has come. */
    void waitFor(std::string_view text)
    {
        while (_text.find(text) == std::string::npos)
            REQUIRE(readMore());
    }
    Outcome finish()
    {
        while (readMore()) {
        }
        int status = 0;
        REQUIRE(waitpid(_process, &status, 0) == _process);
        _process = -1;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), _text};
    }

private:
    Child(const std::string& program, int input, int output, std::vector<std::string> options, Pair talk)
        : _talk(std::move(talk.first))
    {
        std::vector<char*> argv = {const_cast<char*>(program.c_str())};
        for (std::string& option : options)
            argv.push_back(option.data());
        argv.push_back(nullptr);
        _process = fork();
        REQUIRE(_process >= 0);
        if (_process == 0) {
            dup2(input, STDIN_FILENO);
            dup2(output >= 0 ? output : static_cast<int>(talk.second), STDOUT_FILENO);
            dup2(talk.second, STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
    }

    bool readMore()
    {
        REQUIRE(waitToRead(_talk));
        std::array<char, 4096> piece;
        const ssize_t count = read(_talk, piece.data(), piece.size());
        if (count > 0)
            _text.append(piece.data(), static_cast<std::size_t>(count));
        return count > 0;
    }

    pid_t _process = -1;
    Descriptor _talk;
    std::string _text;
};

std::vector<std::string> stdio(std::vector<std::string> options)
{
    options.insert(options.begin(), "--stdio");
    return options;
}

/** One of the programs, with the test as its peer. */
class Conversation {
public:
    explicit Conversation(const std::string& program, const std::vector<std::string>& options = {})
        : Conversation(program, options, makeSockets())
    {}

    /** Goes on until all is sent or the program is gone. */
    void say(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t count = send(_line, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) {
                CHECK((errno == EPIPE || errno == ECONNRESET));
                return;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    std::string hear(std::size_t size) const { return readBytes(_line, size); }
    void leave() { _line.close(); }
    Outcome finish() { return _child.finish(); }

private:
    Conversation(const std::string& program, const std::vector<std::string>& options, Pair sockets)
        : _child(program, sockets.second, sockets.second, stdio(options))
        , _line(std::move(sockets.first))
    {
        const timeval patience = {patienceMs / 1000, 0};
        REQUIRE(setsockopt(_line, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) == 0);
    }

    Child _child;
    Descriptor _line;
};

std::string lengthOf(int size) { return {reinterpret_cast<const char*>(&size), sizeof size}; }
std::string packet(const std::string& body) { return lengthOf(static_cast<int>(body.size())) + body; }

std::string package(const orvi::Message& message)
{
    const auto bytes = ByteIO::create();
    orvi::OutputStream stream(bytes);
    stream << message.getClassId();
    message.exportTo(stream);
    return bytes->bytes;
}

std::string item(int number)
{
    const auto message = exchange::Item::createInstance();
    message->number = number;
    message->text = L"a small text";
    return package(*message);
}

template <class Count>
std::string counting(int count)
{
    const auto message = Count::createInstance();
    message->count = count;
    return package(*message);
}

const auto farewell = counting<exchange::Farewell>;
const auto receipt = counting<exchange::Receipt>;
const auto summary = counting<exchange::Summary>;

/** The number behind a word. */
long numberBehind(const std::string& word, const std::string& text)
{
    const std::size_t at = text.find(word + " ");
    REQUIRE(at != std::string::npos);
    return std::stol(text.substr(at + word.size() + 1));
}

struct Run {
    const char* what;
    const char* count;
    const char* batch;
    const char* piece;
};
constexpr Run runs[] = {
    {"more bytes in all than a packet may have", "700000", "64", "65536"},
    {"one item in a packet", "20000", "1", "65536"},
    {"long packets", "20000", "10000", "65536"},
    {"no item", "0", "64", "65536"},
    {"byte by byte", "300", "7", "1"},
    {"pieces that end anywhere", "20000", "64", "1237"},
};

void checkBothDone(Child& sending, Child& receiving, const std::string& count)
{
    const Outcome sent = sending.finish();
    CHECK(sent.text == "sent " + count + ", confirmed " + count + "\n");
    CHECK(sent.status == 0);
    const Outcome received = receiving.finish();
    CHECK(received.text == "received " + count + " in order\n");
    CHECK(received.status == 0);
}

} // namespace

TEST_CASE("all items arrive over pipes and over a socket")
{
    for (const Run& row : runs) {
        CAPTURE(row.what);
        const auto options = stdio({"--count", row.count, "--batch", row.batch, "--piece", row.piece});
        {
            Pair there = makePipe(), back = makePipe();
            Child sending(sender, back.first, there.second, options);
            Child receiving(receiver, there.first, back.second, stdio({"--piece", row.piece}));
            checkBothDone(sending, receiving, row.count);
        }
        Pair sockets = makeSockets();
        Child sending(sender, sockets.first, sockets.first, options);
        Child receiving(receiver, sockets.second, sockets.second, stdio({"--piece", row.piece}));
        checkBothDone(sending, receiving, row.count);
    }
}

TEST_CASE("either side may listen, at a path that goes away")
{
    const TempDirectory place;
    const std::string path = place / "meet";
    for (const bool senderListens : {false, true}) {
        CAPTURE(senderListens);
        const std::string& first = senderListens ? sender : receiver;
        const std::string& second = senderListens ? receiver : sender;
        Child listening(first, STDIN_FILENO, -1, {"--listen", path, "--count", "20000"});
        listening.waitFor("listening at " + path + "\n");
        Child connecting(second, STDIN_FILENO, -1, {"--connect", path, "--count", "20000"});
        const Outcome one = connecting.finish(), other = listening.finish();
        CHECK(one.status == 0);
        CHECK(other.status == 0);
        CHECK((senderListens ? other : one).has("sent 20000, confirmed 20000\n"));
        CHECK((senderListens ? one : other).has("received 20000 in order\n"));
        CHECK(access(path.c_str(), F_OK) != 0);
    }
}

TEST_CASE("a wrong call is refused")
{
    const TempDirectory place;
    const std::string missing = place / "missing";
    const std::string tooLong = "/" + std::string(200, 'x');
    const struct {
        const char* what;
        std::vector<std::string> options;
        std::string text;
    } rows[] = {
        {"no way to connect", {}, "usage: "},
        {"two ways", {"--stdio", "--connect", "x"}, "usage: "},
        {"no value", {"--connect"}, "usage: "},
        {"no number", {"--stdio", "--piece", "1k"}, "usage: "},
        {"a piece of nothing", {"--stdio", "--piece", "0"}, "usage: "},
        {"unknown", {"--stdio", "--fast", "1"}, "usage: "},
        {"nobody there", {"--connect", missing}, "cannot connect to '" + missing + "': No such file"},
        {"path too long", {"--listen", tooLong}, "cannot use the name '" + tooLong + "': File name too long"},
    };
    for (const std::string& program : {sender, receiver}) {
        for (const auto& row : rows) {
            CAPTURE(row.what);
            const Outcome outcome = Child(program, STDIN_FILENO, -1, row.options).finish();
            CHECK(outcome.status == 1);
            CHECK(outcome.has(row.text));
        }
    }
}

TEST_CASE("the death of one side ends the other one")
{
    // The items go from program to program, the receipts by way of the test, which so knows that they flow.
    Pair items = makePipe(), receipts = makePipe(), toSender = makePipe();
    Child sending(sender, toSender.first, items.second, stdio({"--count", "1000000000000"}));
    Child receiving(receiver, items.first, receipts.second);
    items.first.close();
    items.second.close();
    const std::string some = readBytes(receipts.first, 5 * packet(receipt(0)).size());
    REQUIRE(write(toSender.second, some.data(), some.size()) == static_cast<ssize_t>(some.size()));

    SUBCASE("the receiver's")
    {
        receiving.kill();
        CHECK(receiving.finish().status == -SIGKILL);
        const Outcome outcome = sending.finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == 2);
        CHECK(outcome.has("the peer is gone, and takes nothing any more\n"));
        CHECK(numberBehind("confirmed", outcome.text) >= 5000);
    }
    SUBCASE("the sender's")
    {
        sending.kill();
        CHECK(sending.finish().status == -SIGKILL);
        const Outcome outcome = receiving.finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == 2);
        CHECK(outcome.has("the peer is gone, "));
        CHECK(numberBehind("received", outcome.text) >= 5000);
    }
}

TEST_CASE("empty packets do not hold up those behind them")
{
    Conversation conversation(receiver);
    const std::string empty = packet("");
    conversation.say(empty + empty + packet(item(1)) + empty + packet(item(2) + farewell(2)) + empty);
    CHECK(conversation.hear(1000) == packet(summary(2)));
    const Outcome outcome = conversation.finish();
    CHECK(outcome.text == "received 2 in order\n");
    CHECK(outcome.status == 0);
}

TEST_CASE("a peer that leaves at any byte is told from one that leaves between packets")
{
    const std::string bytes = packet(item(1) + item(2));
    REQUIRE(bytes.size() == 4 + 2 * itemBytes);
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        CAPTURE(cut);
        Conversation conversation(receiver);
        conversation.say(bytes.substr(0, cut));
        conversation.leave();
        const Outcome outcome = conversation.finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == 2);
        const bool between = cut == 0 || cut == bytes.size();
        CHECK(outcome.has(between ? "gone, between two packets\n" : "gone, in the middle of a packet\n"));
        CHECK(outcome.has(cut == bytes.size() ? "received 2 in order" : "received 0 in order"));
    }
}

TEST_CASE("a body that is cut at any byte is refused")
{
    const std::string body = item(1) + item(2);
    for (std::size_t cut = 1; cut < body.size(); ++cut) {
        if (cut == itemBytes) // which is whole
            continue;
        CAPTURE(cut);
        Conversation conversation(receiver);
        conversation.say(packet(body.substr(0, cut)));
        const Outcome outcome = conversation.finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == 3);
        CHECK(outcome.has("the peer sent a message that cannot be read: "));
        CHECK(outcome.has(cut < itemBytes ? "received 0 in order" : "received 1 in order"));
    }
}

TEST_CASE("what breaks the rules is refused, without waiting for more of it")
{
    const struct {
        const char* what;
        const std::string& program;
        std::string bytes;
        const char* text;
    } rows[] = {
        {"negative length", receiver, lengthOf(-1), "packet that cannot be read: Invalid packet size\n"},
        {"least length", receiver, packet(item(1)) + lengthOf(-2147483647 - 1), "size\nreceived 1 in"},
        {"a packet without end", receiver, lengthOf(0x7FFFFFFF) + std::string(17 << 20, 'x'),
         "16 MiB without a complete packet\nreceived 0 in"},
        {"unknown class", receiver, packet(item(1) + std::string("\7\1\0\0", 4) + item(2)),
         "the unknown class 263\nreceived 1 in"},
        {"a message that only receivers send", receiver, packet(receipt(1)), "of the unknown class "},
        {"a text longer than its packet", receiver, packet(item(1).replace(12, 1, "\x3F")),
         "message that cannot be read: "},
        {"a gap", receiver, packet(item(1)) + packet(item(3)), "item 3 out of order\nreceived 1 in"},
        {"the same again", receiver, packet(item(1) + item(1)), "item 1 out of order\nreceived 1 in"},
        {"a wrong farewell", receiver, packet(item(1) + farewell(2)), "counts other items than have come\n"},
        {"an item behind the farewell", receiver, packet(item(1) + farewell(1) + item(2)),
         "item 2 out of order\n"},

        {"negative length", sender, lengthOf(-5), "Invalid packet size\nsent 10, confirmed 0\n"},
        {"unknown class", sender, packet(item(1)), "of the unknown class "},
        {"more than was sent", sender, packet(receipt(7) + receipt(11)), "be\nsent 10, confirmed 7\n"},
        {"less than before", sender, packet(receipt(7)) + packet(receipt(6)), "be\nsent 10, confirmed 7\n"},
        {"a wrong sum", sender, packet(summary(9)), "before it has everything\nsent 10, confirmed 9\n"},
        {"a cut sum", sender, packet(summary(10).substr(0, 11)), "message that cannot be read: "},
    };
    for (const auto& row : rows) {
        CAPTURE(row.program);
        CAPTURE(row.what);
        Conversation conversation(row.program, {"--count", "10"});
        conversation.say(row.bytes);
        const Outcome outcome = conversation.finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == 3);
        CHECK(outcome.has(row.text));
    }
}

TEST_CASE("a length that is a lie costs nothing, and the end behind it is one in the middle")
{
    Conversation conversation(receiver);
    conversation.say(lengthOf(0x7FFFFFFF) + std::string(1000, 'x'));
    conversation.leave();
    const Outcome outcome = conversation.finish();
    CHECK(outcome.status == 2);
    CHECK(outcome.has("gone, in the middle of a packet\n"));
}

TEST_CASE("a sender whose peer does not read makes no items in advance")
{
    Conversation conversation(sender, {"--count", "1000000000000"});
    CHECK(conversation.hear(1).size() == 1);
    conversation.leave();
    const Outcome outcome = conversation.finish();
    CAPTURE(outcome.text);
    CHECK(outcome.status == 2);
    CHECK(outcome.has("the peer is gone, "));
    CHECK(numberBehind("sent", outcome.text) * itemBytes < 4 << 20);
}
