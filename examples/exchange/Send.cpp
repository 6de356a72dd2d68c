/** Sends numbered items to exchange_receive: see --help. */

#include "Messages.h"
#include "Side.h"
#include "Status.h"

#include <orvi/core/Exception.h>

#include <algorithm>
#include <memory>

namespace {

using namespace exchange;

class Sender final : public Side {
public:
    explicit Sender(const Options& options)
        : _count(options.count)
        , _batch(options.batch)
    {
        _item->text = L"a small text";
    }

    void talk(Link& link) override
    {
        link.getParsers() += {this, &Sender::onReceipt};
        link.getParsers() += {this, &Sender::onSummary};
        while (!_summed) {
            while (!_farewell && link.isRoomy())
                sendPacket(link);
            link.flush();
            if (!link.receive())
                link.wait();
        }
    }

    orvi::String result() const override
    {
        orvi::String text;
        text.format(L"sent %lld, confirmed %lld", static_cast<long long>(_sent),
                    static_cast<long long>(_confirmed));
        return text;
    }

private:
    void sendPacket(Link& link)
    {
        for (const std::int64_t end = std::min(_count, _sent + _batch); _sent < end;) {
            _item->number = ++_sent;
            link.add(*_item);
        }
        if (_sent == _count) {
            const auto farewell = Farewell::createInstance();
            farewell->count = _sent;
            link.add(*farewell);
            _farewell = true;
        }
        link.endPacket();
    }

    void onReceipt(const Receipt& receipt) { confirm(receipt.count); }

    void onSummary(const Summary& summary)
    {
        confirm(summary.count);
        if (!_farewell || _confirmed != _sent)
            THROW_EXCEPTION(peerWrong, L"the peer sums up before it has everything");
        _summed = true;
    }

    void confirm(std::int64_t count)
    {
        if (_summed || count < _confirmed || count > _sent)
            THROW_EXCEPTION(peerWrong, L"the peer confirms what cannot be");
        _confirmed = count;
    }

    const std::int64_t _count;
    const int _batch;
    const orvi::Handle_T<Item> _item = Item::createInstance(); // one for all
    std::int64_t _sent = 0;                                    // into the link
    std::int64_t _confirmed = 0;
    bool _farewell = false;
    bool _summed = false;
};

} // namespace

int main(int argc, char** argv)
{
    return run(argc, argv, [](const Options& options) -> std::unique_ptr<Side> {
        return std::make_unique<Sender>(options);
    });
}
