#include "ServiceUnit.h"

#include <algorithm>
#include <string_view>

namespace orvi::platform {

namespace {

constexpr std::string_view suffix = ".service";
constexpr std::size_t longestUnitName = 255; // systemd's limit, and that of file names
constexpr std::string_view commandKey = "ExecStart=:";

bool isAlphanumeric(char ch)
{
    return (ch >= '0' && ch <= '9') || (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}

bool isOneOf(char ch, std::string_view set) { return set.find(ch) != std::string_view::npos; }

bool isControl(char ch) { return static_cast<unsigned char>(ch) < ' ' || ch == 0x7F; }

void appendEscaped(std::string& name, char ch)
{
    constexpr char digits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(ch);
    name += "\\x";
    name += digits[byte >> 4];
    name += digits[byte & 0x0F];
}

/** A value that systemd takes as it stands, but for "%". */
std::optional<std::string> plainValue(std::string_view text)
{
    // A backslash at the end would draw the next line into this one.
    if (std::any_of(text.begin(), text.end(), isControl) || text.ends_with('\\'))
        return {};
    std::string value;
    for (const char ch : text) {
        if (ch == '%')
            value += '%';
        value += ch;
    }
    return value;
}

bool isAccount(std::string_view text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char ch) { return isAlphanumeric(ch) || isOneOf(ch, "_-.@"); });
}

/** A word of a command. Anything unusual goes into quotes, so that neither blanks nor a ";" separate. */
std::string quoted(std::string_view word)
{
    const bool plain = !word.empty() && std::all_of(word.begin(), word.end(), [](char ch) {
        return isAlphanumeric(ch) || isOneOf(ch, "_-./=:,+@");
    });
    if (plain)
        return std::string(word);
    std::string text = "\"";
    for (const char ch : word) {
        if (isOneOf(ch, "\"\\"))
            text += '\\';
        if (ch == '%')
            text += '%';
        text += ch;
    }
    return text += '"';
}

std::optional<std::string> commandValue(const std::vector<String_T<char>>& command)
{
    if (command.empty() || command[0].getBuffer()[0] != '/')
        return {};
    std::string value;
    for (const String_T<char>& part : command) {
        const std::string_view word = part.getBuffer();
        if (std::any_of(word.begin(), word.end(), isControl))
            return {};
        value += (value.empty() ? "" : " ") + quoted(word);
    }
    return value;
}

} // namespace

std::optional<std::string> unitFileName(const String_T<char>& serviceName)
{
    const std::string_view name = serviceName.getBuffer();
    if (name.empty() || name == "." || name == "..")
        return {};
    std::string unit;
    for (const char ch : name) {
        // By the rule of systemd-escape, but for "-", which is common; it is no "/" here, so that is unambiguous.
        const bool hides = unit.empty() && ch == '.';
        if (!hides && (isAlphanumeric(ch) || isOneOf(ch, ":-_.")))
            unit += ch;
        else
            appendEscaped(unit, ch);
    }
    unit += suffix;
    if (unit.size() > longestUnitName)
        return {};
    return unit;
}

std::optional<std::string> unitText(const ServiceEntry& entry)
{
    const bool named = !entry.displayName.isEmpty();
    const auto description = plainValue((named ? entry.displayName : entry.name).getBuffer());
    const auto command = commandValue(entry.command);
    if (!description || !command || !isAccount(entry.account.getBuffer()))
        return {};
    // The ":" keeps systemd from putting variables of the environment in place of "$".
    std::string text = "[Unit]\nDescription=" + *description + "\n\n[Service]\nType=notify\n" +
                       std::string(commandKey) + *command + "\n";
    if (!entry.account.isEmpty())
        text += "User=" + std::string(entry.account.getBuffer()) + "\n";
    return text + "\n[Install]\nWantedBy=multi-user.target\n";
}

std::string commandLineIn(const std::string& unitText)
{
    // Of other makers' units as well, so without our ":".
    const std::string key = "\n" + std::string(commandKey.substr(0, commandKey.size() - 1));
    const std::size_t found = unitText.find(key);
    if (found == std::string::npos)
        return {};
    std::size_t at = found + key.size();
    const std::size_t end = std::min(unitText.find('\n', at), unitText.size());
    if (at < end && unitText[at] == ':')
        ++at;
    std::string line;
    for (; at < end; ++at) {
        line += unitText[at];
        if (isOneOf(unitText[at], "%\\") && at + 1 < end && unitText[at + 1] == unitText[at])
            ++at;
    }
    return line;
}

} // namespace orvi::platform
