#include "Apps.h"
#include "Client.h"
#include "CommandBox.h"
#include "TalkMessages.h"
#include "TalkPlace.h"

#include <algorithm>
#include <deque>

namespace apphost {

using orvi::AppBox;
using orvi::Handle_T;
using orvi::String;

namespace {

constexpr unsigned int listenMs = 10; // at most, before the commands have their turn again
constexpr int batchSize = 1000;       // numbers that may wait at the other side
constexpr int mostNumbers = 1'000'000;
constexpr int largestTerm = 1'000'000'000;
constexpr std::size_t mostHeard = 10;

/** Talks to another application of its kind by messages: says, counts and asks. */
class TalkBox : public CommandBox {
public:
    TalkBox(const String& appName, const String& parameters, std::unique_ptr<TalkPlace> place)
        : CommandBox(appName, parameters,
                     {
                         {L"say", L"TEXT...", L"a text for the other side", 1, anyNumber,
                          method(this, &TalkBox::say)},
                         {L"count", L"NUMBER", L"count up to it, and let the other side count along", 1, 1,
                          method(this, &TalkBox::count)},
                         {L"ask", L"A B", L"let the other side add them", 2, 2, method(this, &TalkBox::ask)},
                         {L"heard", L"", L"the last of what has come", 0, 0, method(this, &TalkBox::heard)},
                         {L"status", L"", L"who is there, and how much has gone to and fro", 0, 0,
                          method(this, &TalkBox::status)},
                     })
        , _place(std::move(place))
    {
        orvi::MessageDispenser<void>& dispenser = _place->port().getMessageDispenser();
        dispenser += {this, &TalkBox::onSaying};
        dispenser += {this, &TalkBox::onNumber};
        dispenser += {this, &TalkBox::onCounted};
        dispenser += {this, &TalkBox::onQuestion};
        dispenser += {this, &TalkBox::onAnswer};
    }

    bool init() override { return CommandBox::init() && _place->port().serveOn(this, listenMs); }
    void exit() override
    {
        if (_place != nullptr)
            _place->port().serveOn(nullptr);
        _place.reset(); // first, so that who sees the end of this box finds the place free
        CommandBox::exit();
    }

private:
    void note(const wchar_t* format, ...)
    {
        std::va_list values;
        va_start(values, format);
        String line;
        line.vprintf(format, values);
        va_end(values);
        _heard.push_back(line);
        if (_heard.size() > mostHeard)
            _heard.pop_front();
    }

    // ---- What comes

    void onSaying(const Saying& saying)
    {
        ++_received;
        note(L"%s: %s", saying.speaker.getBuffer(), saying.text.getBuffer());
    }

    void onNumber(const Number& number)
    {
        ++_received;
        if (number.value == 1)
            _follows = {number.run, 0, true};
        _follows.inOrder &= number.run == _follows.run && number.value == ++_follows.value;
        if (number.value == number.last)
            note(L"the numbers up to %d, %s", number.last, _follows.inOrder ? L"in order" : L"in disorder");
        if (!number.wantsAnswer)
            return;
        const Handle_T<Counted> counted = Counted::createInstance();
        counted->run = number.run;
        counted->value = number.value;
        counted->inOrder = _follows.inOrder;
        push(_place->peer().number, counted);
    }

    void onCounted(const Counted& counted)
    {
        ++_received;
        if (counted.run != _run || counted.value != _sent)
            return; // somebody counted along who has left
        if (_sent < _last)
            return pushNumbers();
        _listener = TalkPlace::nobody;
        note(L"the other side has counted to %d, %s", counted.value,
             counted.inOrder ? L"in order" : L"in disorder");
    }

    void onQuestion(const Question& question)
    {
        ++_received;
        const Handle_T<Answer> answer = Answer::createInstance();
        answer->left = question.left;
        answer->right = question.right;
        answer->sum = question.left + question.right;
        push(_place->peer().number, answer);
    }

    void onAnswer(const Answer& answer)
    {
        ++_received;
        note(L"%d + %d = %d", answer.left, answer.right, answer.sum);
    }

    // ---- What goes

    bool push(int peer, const Handle_T<orvi::Message>& message)
    {
        const bool pushed = _place->push(peer, message);
        _pushed += pushed ? 1 : 0;
        return pushed;
    }

    bool send(const Call& call, const Handle_T<orvi::Message>& message)
    {
        return push(_place->peer().number, message) || failAlone(call);
    }

    bool failAlone(const Call& call)
    {
        return call.fail(L"nobody is at the other side of '%s'", _place->channel().getBuffer());
    }

    bool say(const Call& call)
    {
        const Handle_T<Saying> saying = Saying::createInstance();
        saying->speaker = getAppName();
        saying->text = call.rest(1);
        return send(call, saying);
    }

    bool count(const Call& call)
    {
        const auto number = parseNumber(call[1]);
        if (!number || *number < 1 || *number > mostNumbers)
            return call.fail(L"'%s' is no number from 1 to %d", call[1], mostNumbers);
        const int peer = _place->peer().number;
        if (peer == TalkPlace::nobody)
            return failAlone(call);
        if (isCounting())
            return call.fail(L"it is counting already: %d of %d", _sent, _last);
        _run = orvi::Uuid::create();
        _sent = 0;
        _last = static_cast<int>(*number);
        _listener = peer;
        pushNumbers();
        return true;
    }

    /** Whoever was counting along may have left. */
    bool isCounting() const { return _listener != TalkPlace::nobody && _listener == _place->peer().number; }

    /** The next batch: one at a time, so that few wait and nobody else does. */
    void pushNumbers()
    {
        const int end = std::min(_last, _sent + batchSize);
        bool pushed = true;
        while (pushed && _sent < end) {
            const Handle_T<Number> number = Number::createInstance();
            number->run = _run;
            number->value = ++_sent;
            number->last = _last;
            number->wantsAnswer = _sent == end;
            pushed = push(_listener, number);
        }
    }

    bool ask(const Call& call)
    {
        const Handle_T<Question> question = Question::createInstance();
        return takeTerm(call, 1, question->left) && takeTerm(call, 2, question->right) &&
               send(call, question);
    }

    static bool takeTerm(const Call& call, int index, int& term)
    {
        const auto number = parseNumber(call[index]);
        if (!number || *number < -largestTerm || *number > largestTerm)
            return call.fail(L"'%s' is no number from %d to %d", call[index], -largestTerm, largestTerm);
        term = static_cast<int>(*number);
        return true;
    }

    // ---- What is known

    bool heard(const Call& call)
    {
        for (const String& line : _heard)
            call.say(L"%s", line.getBuffer());
        return true;
    }

    bool status(const Call& call)
    {
        const TalkPlace::Visitor peer = _place->peer();
        call.say(L"%s of '%s', %s%s", _place->side() == TalkPlace::Side::Server ? L"server" : L"client",
                 _place->channel().getBuffer(), peer.isThere() ? L"with " : L"alone", peer.name.getBuffer());
        call.say(L"%I64d messages sent, %I64d received", _pushed, _received);
        if (isCounting())
            call.say(L"counting: %d of %d", _sent, _last);
        return true;
    }

    std::unique_ptr<TalkPlace> _place;
    long long _pushed = 0;
    long long _received = 0;
    std::deque<String> _heard;

    // The count of this side: the numbers up to _sent have gone.
    orvi::Uuid _run;
    int _sent = 0;
    int _last = 0;
    int _listener = TalkPlace::nobody; // the visitor who counts along

    struct Following {
        orvi::Uuid run;
        int value;
        bool inOrder;
    };
    Following _follows{}; // the count of the other side
};

} // namespace

Handle_T<AppBox> createTalkBox(const wchar_t* appName, const wchar_t* parameters)
{
    auto place = TalkPlace::take(parameters, appName);
    if (place == nullptr) {
        printLine(appName, L"two talk on '" + String(parameters) + L"' already");
        return {};
    }
    return new TalkBox(appName, parameters, std::move(place));
}

} // namespace apphost
