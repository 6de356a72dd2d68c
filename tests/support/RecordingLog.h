#pragma once
#include <orvi/core/Log.h>
#include <orvi/core/String.h>

#include <algorithm>
#include <mutex>
#include <vector>

/** Keeps what is logged while it lives, from any thread. */
class RecordingLog final : public orvi::LogListener {
public:
    enum class Level { Error, Warning, Message, Debug, Whistle };
    struct Line {
        Level level;
        orvi::String text; // "+" or "-" for a whistle
        bool operator==(const Line&) const = default;
    };

    RecordingLog() { orvi::Log::addListener(this); }
    ~RecordingLog() { orvi::Log::removeListener(this); }
    RecordingLog(const RecordingLog&) = delete;
    RecordingLog& operator=(const RecordingLog&) = delete;

    /** A copy of the lines so far. */
    std::vector<Line> lines() const
    {
        const std::lock_guard guard(_mutex);
        return _lines;
    }
    /** The texts of one level. */
    std::vector<orvi::String> texts(Level level) const
    {
        std::vector<orvi::String> found;
        for (const Line& line : lines()) {
            if (line.level == level)
                found.push_back(line.text);
        }
        return found;
    }
    std::vector<orvi::String> errors() const { return texts(Level::Error); }
    std::vector<orvi::String> warnings() const { return texts(Level::Warning); }

    /** How many lines of a level contain `part`. */
    int count(Level level, const wchar_t* part) const
    {
        const std::lock_guard guard(_mutex);
        return static_cast<int>(std::count_if(_lines.begin(), _lines.end(), [&](const Line& line) {
            return line.level == level && line.text.find(part) >= 0;
        }));
    }
    void clear() const
    {
        const std::lock_guard guard(_mutex);
        _lines.clear();
    }

    const wchar_t* getName() override { return L"recording"; }
    bool setparam(const wchar_t*) override { return false; }
    void error(const wchar_t* text) override { add(Level::Error, text); }
    void warning(const wchar_t* text) override { add(Level::Warning, text); }
    void message(const wchar_t* text) override { add(Level::Message, text); }
    void debug(const wchar_t* text) override { add(Level::Debug, text); }
    void whistle(bool success) override { add(Level::Whistle, success ? L"+" : L"-"); }

private:
    void add(Level level, const wchar_t* text)
    {
        const std::lock_guard guard(_mutex);
        _lines.push_back({level, text});
    }

    mutable std::mutex _mutex;
    mutable std::vector<Line> _lines;
};
