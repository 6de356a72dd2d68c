#include <orvi/core/Text.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Stream.h>

#include "base/WholeTexts.h"

namespace orvi {

class TextWriter::IWriter : public Unknown {
public:
    virtual bool write(const String_T<char>& text) = 0;
    virtual bool write(const String& text) = 0;
    virtual bool write(const String_T<unsigned char>& text) = 0;
};

namespace {

template <class T>
bool writeAll(Output& output, const String_T<T>& text)
{
    const int size = text.getBufferLength() - static_cast<int>(sizeof(T));
    return size == 0 || output.write(text.getBuffer(), size) == size;
}

/** The same for a text made of another, which is empty also when it could not be made. */
template <class T, class Source>
bool writeAll(Output& output, const String_T<T>& text, const String_T<Source>& source)
{
    return text.isEmpty() ? *source.getBuffer() == 0 : writeAll(output, text);
}

class Utf8Writer final : public TextWriter::IWriter {
public:
    explicit Utf8Writer(Output* output)
        : _output(output)
    {}
    bool write(const String_T<char>& text) override { return writeAll(*_output, text); }
    bool write(const String& text) override
    {
        return writeAll(*_output, StringHelper::wideToUtf8(text), text);
    }
    bool write(const String_T<unsigned char>& text) override
    {
        return writeAll(*_output, StringHelper::ansiToUtf8(text), text);
    }

private:
    Handle_T<Output> _output;
};

class WideWriter final : public TextWriter::IWriter {
public:
    explicit WideWriter(Output* output)
        : _output(output)
    {}
    bool write(const String_T<char>& text) override
    {
        return writeAll(*_output, StringHelper::utf8ToWide(text), text);
    }
    bool write(const String& text) override { return writeAll(*_output, text); }
    bool write(const String_T<unsigned char>& text) override
    {
        return writeAll(*_output, StringHelper::ansiToWide(text), text);
    }

private:
    Handle_T<Output> _output;
};

class AnsiWriter final : public TextWriter::IWriter {
public:
    explicit AnsiWriter(Output* output)
        : _output(output)
    {}
    bool write(const String_T<char>& text) override
    {
        return writeAll(*_output, StringHelper::utf8ToAnsi(text), text);
    }
    bool write(const String& text) override
    {
        return writeAll(*_output, StringHelper::wideToAnsi(text), text);
    }
    bool write(const String_T<unsigned char>& text) override { return writeAll(*_output, text); }

private:
    Handle_T<Output> _output;
};

TextWriter::IWriter* createWriter(Output* output, TextWriter::CharacterSet set)
{
    switch (set) {
    case TextWriter::UTF8:
        return new Utf8Writer(output);
    case TextWriter::WIDE:
        return new WideWriter(output);
    case TextWriter::ANSI:
        return new AnsiWriter(output);
    }
    return nullptr;
}

} // namespace

TextWriter::TextWriter() noexcept = default;

TextWriter::TextWriter(Output* output, CharacterSet set) { open(output, set); }

TextWriter::TextWriter(const TextWriter& other) noexcept = default;

TextWriter& TextWriter::operator=(const TextWriter& other) noexcept = default;

TextWriter::~TextWriter() = default;

bool TextWriter::open(Output* output, CharacterSet set)
{
    const Handle_T<Output> held = output; // the old back end may be all that keeps it alive
    close();
    if (output != nullptr)
        _writer = createWriter(output, set);
    return !_writer.isNull();
}

void TextWriter::close() { _writer.setNull(); }

bool TextWriter::write(const String& text) { return !_writer.isNull() && _writer->write(text); }

bool TextWriter::write(const String_T<char>& text) { return !_writer.isNull() && _writer->write(text); }

bool TextWriter::write(const String_T<unsigned char>& text)
{
    return !_writer.isNull() && _writer->write(text);
}

int TextWriter::vprintf(const wchar_t* format, std::va_list arguments)
{
    if (_writer.isNull())
        return -1;
    const WholeTexts texts;
    String text;
    const int count = text.vprintf(format, arguments);
    return texts.areAll() && write(text) ? count : -1;
}

int TextWriter::print(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int count = vprintf(format, arguments);
    va_end(arguments);
    return count;
}

} // namespace orvi
