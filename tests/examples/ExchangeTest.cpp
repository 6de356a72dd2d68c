#include "../../examples/exchange/Messages.h"
#include "ByteIO.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string sender = ORVI_EXCHANGE_SEND;
const std::string receiver = ORVI_EXCHANGE_RECEIVE;

enum class Kind { Pipe, Sockets };

/** Two ends, that of a pipe to read from in front. They are closed when it goes, if not before. */
class Pair {
public:
    explicit Pair(Kind kind)
    {
        REQUIRE((kind == Kind::Pipe ? pipe2(_ends, O_CLOEXEC)
                                    : socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, _ends)) == 0);
    }
    ~Pair()
    {
        close(0);
        close(1);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    int operator[](int end) const { return _ends[end]; }
    void close(int end)
    {
        if (_ends[end] >= 0)
            ::close(_ends[end]);
        _ends[end] = -1;
    }

private:
    int _ends[2];
};

/** Reads up to `size` bytes more; false at the end. */
bool readMore(int descriptor, std::size_t size, std::string& text)
{
    constexpr int patienceMs = 60'000;
    pollfd source = {descriptor, POLLIN, 0};
    REQUIRE(poll(&source, 1, patienceMs) == 1);
    std::string piece(size, 0);
    const ssize_t count = read(descriptor, piece.data(), size);
    text.append(piece, 0, count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0;
}

struct Outcome {
    int status; // negative, the signal that ended it
    std::string text;
    bool has(std::string_view part) const { return text.find(part) != std::string::npos; }
};

/** One of the programs, with descriptors of the test's as its standard input and output. */
class Child {
public:
    Child(const std::string& program, int input, int output, std::vector<std::string> options)
    {
        std::vector<char*> argv = {const_cast<char*>(program.c_str())};
        for (std::string& option : options)
            argv.push_back(option.data());
        argv.push_back(nullptr);
        _process = fork();
        REQUIRE(_process >= 0);
        if (_process == 0) {
            dup2(input, STDIN_FILENO);
            dup2(output >= 0 ? output : _talk[1], STDOUT_FILENO);
            dup2(_talk[1], STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
        _talk.close(1);
    }
    ~Child()
    {
        if (_process > 0) { // a check has failed before its end
            kill();
            waitpid(_process, nullptr, 0);
        }
    }

    void kill() const { ::kill(_process, SIGKILL); }
    void waitFor(std::string_view text)
    {
        while (_text.find(text) == std::string::npos)
            REQUIRE(readMore(_talk[0], 4096, _text));
    }
    Outcome finish()
    {
        while (readMore(_talk[0], 4096, _text)) {
        }
        int status = 0;
        REQUIRE(waitpid(_process, &status, 0) == _process);
        _process = -1;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), _text};
    }

private:
    pid_t _process = -1;
    Pair _talk{Kind::Pipe};
    std::string _text;
};

enum class Peer { Stays, Leaves };

/** Runs one of the programs with the test as its peer, which sends these bytes. */
Outcome talk(const std::string& program, std::string_view bytes, Peer peer, const char* count = "10")
{
    Pair sockets(Kind::Sockets);
    Child child(program, sockets[1], sockets[1], {"--stdio", "--count", count});
    sockets.close(1);
    while (!bytes.empty()) {
        const ssize_t sent = send(sockets[0], bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) { // the program is gone
            CHECK((errno == EPIPE || errno == ECONNRESET));
            break;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    if (peer == Peer::Leaves)
        sockets.close(0);
    return child.finish();
}

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

constexpr std::size_t itemBytes = 25;
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

} // namespace

TEST_CASE("all items arrive")
{
    const struct {
        std::string count; // 700000 have more bytes in all than a packet may have
        const char* batch;
        const char* piece;
    } rows[] = {
        {"700000", "64", "65536"}, {"20000", "10000", "1237"}, {"300", "7", "1"}, {"0", "64", "65536"}};
    for (const auto& row : rows) {
        CAPTURE(row.count);
        const Pair there(Kind::Pipe), back(Kind::Pipe);
        Child sending(sender, back[0], there[1],
                      {"--stdio", "--count", row.count, "--batch", row.batch, "--piece", row.piece});
        Child receiving(receiver, there[0], back[1], {"--stdio", "--piece", row.piece});
        const Outcome sent = sending.finish(), received = receiving.finish();
        CHECK(sent.text == "sent " + row.count + ", confirmed " + row.count + "\n");
        CHECK(sent.status == 0);
        CHECK(received.text == "received " + row.count + " in order\n");
        CHECK(received.status == 0);
    }
}

TEST_CASE("either side may listen, at a path that goes away")
{
    const TempDirectory place;
    const std::string path = place / "meet";
    for (const std::string& first : {receiver, sender}) {
        CAPTURE(first);
        Child listening(first, STDIN_FILENO, -1, {"--listen", path, "--count", "20000"});
        listening.waitFor("listening at " + path + "\n");
        Child connecting(first == sender ? receiver : sender, STDIN_FILENO, -1,
                         {"--connect", path, "--count", "20000"});
        CHECK(connecting.finish().status == 0);
        const Outcome outcome = listening.finish();
        CHECK(outcome.status == 0);
        CHECK(outcome.has(first == sender ? "confirmed 20000\n" : "received 20000 in order\n"));
        CHECK(access(path.c_str(), F_OK) != 0);
    }
}

TEST_CASE("a wrong call is refused")
{
    const std::string tooLong = "/" + std::string(200, 'x');
    const std::vector<std::string> rows[] = {
        // behind the text of the refusal, the options
        {"usage: "},
        {"usage: ", "--connect"},
        {"usage: ", "--stdio", "--piece", "0"},
        {"usage: ", "--stdio", "--fast", "1"},
        {"cannot connect to '/none/here': No such file", "--connect", "/none/here"},
        {"cannot use the name '" + tooLong + "': File name too long", "--listen", tooLong},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Child(receiver, STDIN_FILENO, -1, {row.begin() + 1, row.end()}).finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == 1);
        CHECK(outcome.has(row[0]));
    }
}

TEST_CASE("the death of one side ends the other one")
{
    for (const std::string& victim : {receiver, sender}) {
        CAPTURE(victim);
        // The items go from program to program, the receipts by way of the test, which so knows that they flow.
        Pair items(Kind::Pipe), receipts(Kind::Pipe), toSender(Kind::Pipe);
        Child sending(sender, toSender[0], items[1], {"--stdio", "--count", "1000000000000"});
        Child receiving(receiver, items[0], receipts[1], {"--stdio"});
        items.close(0);
        items.close(1);
        std::string one;
        const std::size_t size = packet(receipt(0)).size();
        while (one.size() < size)
            REQUIRE(readMore(receipts[0], size - one.size(), one));
        REQUIRE(write(toSender[1], one.data(), size) == static_cast<ssize_t>(size));

        Child& survivor = victim == sender ? receiving : sending;
        (victim == sender ? sending : receiving).kill();
        const Outcome outcome = survivor.finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == 2);
        CHECK(outcome.has("the peer is gone, "));
        CHECK_FALSE(outcome.has(victim == sender ? "received 0 " : "confirmed 0\n"));
    }
}

TEST_CASE("a peer that leaves is told from one that breaks the rules, whose end nobody waits for")
{
    const std::string empty = packet(""); // does not hold up what is behind it
    const struct {
        const std::string& program;
        Peer peer;
        std::string bytes;
        const char* text;
    } rows[] = {
        {receiver, Peer::Leaves, "", "gone, between two packets\nreceived 0 in"},
        {receiver, Peer::Leaves, "\3", "gone, in the middle of a packet\nreceived 0 in"},
        {receiver, Peer::Leaves, packet(item(1) + item(2)).substr(0, 30),
         "middle of a packet\nreceived 0 in"},
        {receiver, Peer::Leaves, empty + packet(item(1)) + empty + packet(item(2)), "packets\nreceived 2 in"},
        {receiver, Peer::Leaves, lengthOf(0x7FFFFFFF) + "x", "middle of a packet\nreceived 0 in"},
        {receiver, Peer::Stays, packet(item(1)) + lengthOf(-2147483647 - 1), "packet size\nreceived 1 in"},
        {receiver, Peer::Stays, lengthOf(0x7FFFFFFF) + std::string(17 << 20, 'x'),
         "without a complete packet"},
        {receiver, Peer::Stays, packet(item(1) + std::string("\7\1\0\0", 4)),
         "unknown class 263\nreceived 1"},
        {receiver, Peer::Stays, packet(item(1) + item(2).substr(0, 3)), "message that cannot be read: "},
        {receiver, Peer::Stays, packet(item(1).replace(12, 1, "\x3F")), "message that cannot be read: "},
        {receiver, Peer::Stays, packet(item(1)) + packet(item(3)), "item 3 out of order\nreceived 1 in"},
        {receiver, Peer::Stays, packet(item(1) + farewell(2)), "counts other items than have come\n"},
        {receiver, Peer::Stays, packet(item(1) + farewell(1) + item(2)), "item 2 out of order\n"},
        {sender, Peer::Stays, lengthOf(-5), "Invalid packet size\nsent 10, confirmed 0\n"},
        {sender, Peer::Stays, packet(receipt(7) + receipt(11)), "be\nsent 10, confirmed 7\n"},
        {sender, Peer::Stays, packet(receipt(7)) + packet(receipt(6)), "be\nsent 10, confirmed 7\n"},
        {sender, Peer::Stays, packet(summary(9)), "before it has everything\nsent 10, confirmed 9\n"},
        {sender, Peer::Stays, packet(summary(10).substr(0, 11)), "message that cannot be read: "},
    };
    for (const auto& row : rows) {
        CAPTURE(row.text);
        const Outcome outcome = talk(row.program, row.bytes, row.peer);
        CAPTURE(outcome.text);
        CHECK(outcome.status == (row.peer == Peer::Leaves ? 2 : 3));
        CHECK(outcome.has(row.text));
    }
}

TEST_CASE("a sender whose peer does not read makes no items in advance")
{
    const Outcome outcome = talk(sender, "", Peer::Leaves, "1000000000000");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 2);
    CHECK(outcome.has("the peer is gone, "));
    REQUIRE(outcome.has("sent "));
    CHECK(std::stoul(outcome.text.substr(outcome.text.find("sent ") + 5)) * itemBytes < 4 << 20);
}
