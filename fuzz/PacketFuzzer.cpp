#include "Input.h"

#include <orvi/core/Packet.h>

#include <algorithm>
#include <set>

using namespace orvi;
using fuzz::expect;

namespace {

constexpr std::size_t headerSize = 4;

/** A source that follows a plan: each byte of it is what one read may give. Behind its end all is given. */
class Source final : public orvi::Input {
public:
    enum Step : std::uint8_t { Lie = 254, Failure = 255 }; // other steps are bytes, 0 is nothing now

    Source(const std::string& plan, const std::string& bytes)
        : _plan(plan)
        , _bytes(bytes)
    {}

    int available() const override { return static_cast<int>(_bytes.size() - _position); }
    int peek(void* buffer, int size) const override { return copy(buffer, size); }
    int read(void* buffer, int size) override
    {
        const bool isPlanned = _step < _plan.size();
        const int step = isPlanned ? static_cast<std::uint8_t>(_plan[_step++]) : size;
        hasFailed = isPlanned && (step == Failure || step == Lie);
        if (hasFailed)
            return step == Lie ? size + 1 : -1;
        const int count = copy(buffer, std::min(size, step));
        hadNothing = count == 0;
        _position += static_cast<std::size_t>(count);
        return count;
    }

    std::size_t position() const { return _position; }
    bool isDone() const { return _step == _plan.size() && available() == 0; }

    // Of the last read.
    bool hasFailed = false;
    bool hadNothing = false;

private:
    int copy(void* buffer, int size) const
    {
        const int count = std::min(size, available());
        std::memcpy(buffer, _bytes.data() + _position, static_cast<std::size_t>(count));
        return count;
    }

    const std::string _plan;
    std::size_t _step = 0;
    const std::string _bytes;
    std::size_t _position = 0;
};

/** What a straight reading of the bytes gives. */
struct Model {
    struct Event {
        bool isPacket; // or a length that is none
        std::string body;
        std::size_t end;
    };

    explicit Model(const std::string& bytes)
    {
        std::size_t position = 0;
        while (begins.insert(position), bytes.size() - position >= headerSize) {
            std::int32_t size = 0;
            std::memcpy(&size, bytes.data() + position, headerSize);
            position += headerSize;
            if (size < 0) {
                events.push_back({false, {}, position});
                continue;
            }
            const auto length = static_cast<std::size_t>(size);
            if (length > bytes.size() - position)
                return;
            position += length;
            if (length > 0)
                events.push_back({true, bytes.substr(position - length, length), position});
        }
    }

    std::vector<Event> events;
    std::set<std::size_t> begins; // where a length is due
};

std::string drain(InputStream& stream)
{
    std::string bytes(static_cast<std::size_t>(stream.available()), 0);
    const int size = static_cast<int>(bytes.size());
    expect(bytes.empty() || stream.read(bytes.data(), size) == size, "what is announced can be read");
    return bytes;
}

void checkRead(const std::string& plan, const std::string& bytes)
{
    const Model model(bytes);
    auto event = model.events.begin();
    const Handle_T<Source> source = new Source(plan, bytes);
    PacketReader reader;
    while (!source->isDone()) {
        reader = PacketReader(reader); // goes on where the other one was
        reader.attach(source);
        InputStream packet(source);
        const bool result = reader.read(packet);
        const std::size_t position = source->position();
        if (source->hasFailed) {
            expect(packet.isNull(), "a source that fails gives no packet");
            expect(result == model.begins.contains(position), "it does harm in the middle of a packet only");
        } else if (!result || !packet.isNull()) {
            expect(event != model.events.end(), "nothing comes but what is there");
            expect(event->isPacket == result, "a negative length is refused, and nothing else");
            expect(event->end == position, "the source stands behind it");
            expect(!result || drain(packet) == event->body, "a packet comes as it was sent");
            ++event;
        } else {
            expect(source->hadNothing || model.begins.contains(position), "what is complete comes at once");
        }
    }
    expect(event == model.events.end(), "all packets come");
}

/** Takes no more than some bytes. */
class Room final : public Output {
public:
    explicit Room(std::size_t size)
        : _size(size)
    {}

    int write(const void* data, int size) override
    {
        const std::size_t count = std::min(static_cast<std::size_t>(size), _size - bytes.size());
        bytes.append(static_cast<const char*>(data), count);
        return static_cast<int>(count);
    }

    std::string bytes;

private:
    const std::size_t _size;
};

Handle_T<MemoryStream> streamOf(const std::string& bytes)
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    stream->write(bytes.data(), static_cast<int>(bytes.size()));
    return stream;
}

/** Cuts the bytes at the places that the plan tells, and sends the pieces. */
void checkWrite(const std::string& plan, const std::string& bytes)
{
    std::vector<std::string> pieces;
    std::size_t position = 0;
    for (const char step : plan) {
        pieces.push_back(bytes.substr(position, static_cast<std::uint8_t>(step)));
        position += pieces.back().size();
    }
    const Handle_T<Room> wide = new Room(bytes.size() + headerSize * pieces.size());
    const Handle_T<Room> narrow = new Room(bytes.size() / 2);
    PacketWriter writer, narrowWriter;
    writer.attach(wide);
    narrowWriter.attach(narrow);
    bool fits = true;
    for (const std::string& piece : pieces) {
        InputStream packet(streamOf(piece)), again(streamOf(piece));
        expect(writer.write(packet) && packet.available() == 0, "a packet is written whole");
        fits = fits && wide->bytes.size() <= bytes.size() / 2;
        expect(!fits || narrowWriter.write(again), "what fits is written");
        expect(fits || !narrowWriter.write(again), "what does not fit fails");
    }
    PacketReader reader;
    reader.attach(streamOf(wide->bytes));
    for (const std::string& piece : pieces) {
        InputStream packet;
        expect(reader.read(packet) && packet.isNull() == piece.empty(), "what was written can be read");
        expect(piece.empty() || drain(packet) == piece, "and is the same");
    }
}

} // namespace

/** A byte with the length of the plan, the plan, and what is read by it. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::string plan(std::min<std::size_t>(input.takeByte(), input.size()), 0);
    for (char& step : plan)
        step = static_cast<char>(input.takeByte());
    const std::string bytes(input.data(), input.data() + input.size());
    checkRead(plan, bytes);
    checkWrite(plan, bytes);
    return 0;
}
