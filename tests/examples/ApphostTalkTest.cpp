#include "ApphostProgram.h"

#include <chrono>

namespace {

/** Two that talk, alice at the server's place and bob at the client's. Messages take their time: what shall come
    of a line is asked for until it is there. */
class Talk {
public:
    explicit Talk(const TempDirectory& place)
        : _program(place, {"--bare"})
    {
        _program.type("start talk alice den\nstart talk bob den\n");
    }

    /** Carries out lines, and gives what they print. */
    std::string say(const std::string& lines)
    {
        const std::string mark =
            "# " + std::to_string(++_marks) + "\n"; // a comment is printed when it is its turn
        const std::size_t begin = _program.seen().size();
        _program.type(lines + "\n" + mark);
        REQUIRE(_program.waitFor("\n" + mark));
        return _program.seen().substr(begin);
    }
    bool await(const std::string& line, std::string_view answer)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMs);
        while (!contains(say(line), answer)) {
            if (std::chrono::steady_clock::now() > end)
                return false;
        }
        return true;
    }
    int finish()
    {
        _program.closeInput();
        return _program.finish();
    }

private:
    Program _program;
    int _marks = 0;
};

} // namespace

TEST_CASE("two applications say, ask and count both ways")
{
    const TempDirectory place;
    Talk talk(place);
    CHECK(contains(talk.say("alice status"), "alice     server of 'den', with bob\n"));
    CHECK(contains(talk.say("bob status"), "bob       client of 'den', with alice\n"));

    talk.say("alice say Grüße,  \"from   here\"\nbob say hello\nbob say again");
    CHECK(talk.await("bob heard", "bob       alice: Grüße, from   here\n"));
    CHECK(talk.await("alice heard", "alice     bob: hello\nalice     bob: again\n"));

    talk.say("alice ask 17 -20\nbob ask 1000000000 1000000000");
    CHECK(talk.await("alice heard", "alice     17 + -20 = -3\n"));
    CHECK(talk.await("bob heard", "bob       1000000000 + 1000000000 = 2000000000\n"));

    talk.say("alice count 2001\nbob count 1000");
    CHECK(talk.await("alice heard", "alice     the other side has counted to 2001, in order\n"));
    CHECK(talk.await("bob heard", "bob       the other side has counted to 1000, in order\n"));
    CHECK(contains(talk.say("alice heard"), "alice     the numbers up to 1000, in order\n"));
    CHECK(contains(talk.say("bob heard"), "bob       the numbers up to 2001, in order\n"));
    // Sayings, a question, an answer, numbers, and one more answer for a thousand or the rest of the other side's.
    CHECK(talk.await("alice status", "alice     2005 messages sent, 1007 received\n"));
    CHECK(talk.await("bob status", "bob       1007 messages sent, 2005 received\n"));

    talk.say("alice count 1");
    CHECK(talk.await("bob heard", "bob       the numbers up to 1, in order\n"));
    CHECK(contains(talk.say("alice help"), "count NUMBER"));
    CHECK(talk.finish() == 0);
}

TEST_CASE("a side that has ended leaves its place, and nothing in it")
{
    const TempDirectory place;
    Talk talk(place);
    CHECK(contains(talk.say("! start talk carol den"), "carol     two talk on 'den' already\n"));
    CHECK(contains(talk.say("start talk carol attic\ncarol status"), "carol     server of 'attic', alone\n"));

    // bob ends in the middle: what he has not read is nothing to the one behind him.
    const std::string middle = talk.say("bob count 1000000\n! bob count 1\nalice count 1000000\nexit bob");
    CHECK(contains(middle, "bob       it is counting already: "));
    CHECK(contains(talk.say("alice status"), "alice     server of 'den', alone\n"));
    CHECK(contains(talk.say("! alice say anybody?"), "alice     nobody is at the other side of 'den'\n"));
    CHECK(contains(talk.say("! alice count 1"), "alice     nobody is at the other side of 'den'\n"));
    const std::string joined = talk.say("start talk dave den\ndave status\ndave heard");
    CHECK(contains(joined, "dave      client of 'den', with alice\ndave      0 messages sent, 0 received\n"
                           "dave      $END OK\n"));
    CHECK(contains(joined, "dave      $BEGIN heard\ndave      $END OK\n"));
    CHECK(contains(talk.say("! start talk erin den"), "two talk on 'den' already"));
    talk.say("alice count 1500");
    CHECK(talk.await("alice heard", "alice     the other side has counted to 1500, in order\n"));

    // The server's place gets free as well, and with both the channel.
    CHECK(contains(talk.say("exit alice\nstart talk erin den\nerin status"), "server of 'den', with dave\n"));
    CHECK(contains(talk.say("exit erin\nexit dave\nstart talk frank den\nfrank status\nfrank heard"),
                   "frank     server of 'den', alone\nfrank     0 messages sent, 0 received\n"));
    CHECK(talk.finish() == 0);
}

TEST_CASE("a long count goes on while commands are answered")
{
    const TempDirectory place;
    Talk talk(place);
    CHECK(contains(talk.say("alice count 100000\nalice status"), "alice     counting: "));
    talk.say("bob say in between");
    CHECK(talk.await("alice heard", "alice     bob: in between\n"));
    CHECK(talk.await("alice heard", "alice     the other side has counted to 100000, in order\n"));
    CHECK(talk.finish() == 0);
}

TEST_CASE("what cannot be said is a failed command with a reason")
{
    const TempDirectory place;
    const Refusal rows[] = {
        {"talk say", "usage: say TEXT..."},
        {"talk say hello", "nobody is at the other side of ''"},
        {"talk ask 1 2", "nobody is at the other side of ''"},
        {"alice count 0", "'0' is no number from 1 to 1000000"},
        {"alice count 1000001", "'1000001' is no number from 1 to 1000000"},
        {"alice count many", "'many' is no number from 1 to 1000000"},
        {"alice ask 1", "usage: ask A B"},
        {"alice ask 1 x", "'x' is no number from -1000000000 to 1000000000"},
        {"alice ask 1000000001 1", "'1000000001' is no number from -1000000000 to 1000000000"},
        {"start talk carol den", "two talk on 'den' already"},
    };
    checkRefusals(place, "start talk alice den\nstart talk bob den\n", rows);
}
