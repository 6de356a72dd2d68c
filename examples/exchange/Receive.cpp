/** Receives the items of exchange_send and confirms them: see --help. */

#include "Messages.h"
#include "Side.h"
#include "Status.h"

#include <orvi/core/Exception.h>

#include <memory>

namespace {

using namespace exchange;

class Receiver final : public Side {
public:
    void talk(Link& link) override
    {
        link.getParsers() += {this, &Receiver::onItem};
        link.getParsers() += {this, &Receiver::onFarewell};
        while (!_farewell || !link.isFlushed()) {
            if (!link.receive())
                link.wait();
            else if (_farewell)
                answer<Summary>(link);
            else if (_received - _confirmed >= itemsPerReceipt && link.isFlushed())
                answer<Receipt>(link);
            link.flush();
        }
    }

    orvi::String result() const override
    {
        orvi::String text;
        text.format(L"received %lld in order", static_cast<long long>(_received));
        return text;
    }

private:
    static constexpr int itemsPerReceipt = 1000;

    template <class Count>
    void answer(Link& link)
    {
        const auto message = Count::createInstance();
        message->count = _confirmed = _received;
        link.add(*message);
        link.endPacket();
    }

    void onItem(const Item& item)
    {
        if (_farewell || item.number != _received + 1) {
            orvi::String text;
            text.format(L"the peer sent item %lld out of order", static_cast<long long>(item.number));
            THROW_EXCEPTION(peerWrong, text);
        }
        ++_received;
    }

    void onFarewell(const Farewell& farewell)
    {
        if (_farewell || farewell.count != _received)
            THROW_EXCEPTION(peerWrong, L"the peer's farewell counts other items than have come");
        _farewell = true;
    }

    std::int64_t _received = 0;
    std::int64_t _confirmed = 0;
    bool _farewell = false;
};

} // namespace

int main(int argc, char** argv)
{
    return run(argc, argv,
               [](const Options&) -> std::unique_ptr<Side> { return std::make_unique<Receiver>(); });
}
