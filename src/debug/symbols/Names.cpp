#include "Names.h"

#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dwarf.h>
#include <iterator>

namespace orvi::debug {
namespace {

// Where the bracket opens that closes at the end of the text.
std::size_t openingBracket(std::string_view text)
{
    int depth = 0;
    for (std::size_t i = text.size(); i-- > 0;) {
        if (text[i] == ')')
            ++depth;
        else if (text[i] == '(' && --depth == 0)
            return i;
    }
    return std::string_view::npos;
}

bool dropEnd(std::string_view& text, std::string_view end)
{
    if (!text.ends_with(end))
        return false;
    text.remove_suffix(end.size());
    return true;
}

// Where the name of an operator begins that `text` ends with: one of signs, as "operator<<".
std::size_t endingOperator(std::string_view text)
{
    constexpr std::string_view word = "operator";
    const std::size_t last = text.find_last_not_of("+-*/%^&|~!=<>,()[]");
    if (last == std::string_view::npos || last + 1 == text.size() ||
        !text.substr(0, last + 1).ends_with(word))
        return std::string_view::npos;
    return last + 1 - word.size();
}

// The demangler puts the type of the result before the name of a template, with a space between; but none before
// an operator that converts.
std::string_view withoutResult(std::string_view name)
{
    if (!name.ends_with('>') || endingOperator(name) != std::string_view::npos ||
        name.find("::operator ") != std::string_view::npos)
        return name;
    int depth = 0;
    for (std::size_t i = name.size(); i-- > 0;) {
        const char sign = name[i];
        if (depth == 0) { // the signs of an operator are no brackets
            const std::size_t begin = endingOperator(name.substr(0, i + 1));
            if (begin != std::string_view::npos) {
                i = begin;
                continue;
            }
        }
        if (sign == '>' || sign == ')' || sign == '}' || sign == ']')
            ++depth;
        else if (sign == '<' || sign == '(' || sign == '{' || sign == '[')
            --depth;
        else if (sign == ' ' && depth == 0 && endingOperator(name.substr(0, i)) == std::string_view::npos)
            return name.substr(i + 1);
    }
    return name;
}

// Where the parameters begin that the name ends with.
std::size_t parametersBegin(std::string_view name)
{
    while (dropEnd(name, " const") || dropEnd(name, " volatile") || dropEnd(name, " &") || dropEnd(name, "&"))
        ;
    const std::size_t bracket = name.ends_with(')') ? openingBracket(name) : std::string_view::npos;
    const bool isName =
        bracket == 0 || name.ends_with("(anonymous namespace)") || name.ends_with("operator()");
    return isName ? std::string_view::npos : bracket;
}

// From "void a::f<int>(int) const [clone .cold]" only "a::f<int>", and from "f(int)::{lambda()#1}::operator()()"
// only "f::{lambda()#1}::operator()".
void appendWithoutParameters(std::string_view name, TextBuffer& text)
{
    const std::string_view whole = name.substr(0, name.find(" [clone"));
    name = withoutResult(whole.substr(0, parametersBegin(whole)));
    std::size_t done = 0;
    for (std::size_t i = name.find("::"); i != std::string_view::npos; i = name.find("::", i + 1)) {
        const std::size_t begin = parametersBegin(name.substr(done, i - done));
        if (begin == std::string_view::npos)
            continue;
        text.append(name.substr(done, begin));
        done = i;
    }
    text.append(name.substr(done));
}

// A symbol may carry a version ("qsort@@GLIBC_2.2.5"), which the demangler does not know.
void writeReadable(const char* name, Parameters parameters, TextBuffer& text)
{
    char* plain = strndup(name, std::strcspn(name, "@"));
    if (plain == nullptr)
        return;
    // The demangler would read a C name as that of a type.
    char* demangled = std::string_view(plain).starts_with("_Z")
                          ? abi::__cxa_demangle(plain, nullptr, nullptr, nullptr)
                          : nullptr;
    if (demangled == nullptr)
        text.append(plain);
    else if (parameters == Parameters::Kept)
        text.append(demangled);
    else
        appendWithoutParameters(demangled, text);
    std::free(demangled);
    std::free(plain);
}

const char* linkageName(Dwarf_Die& function)
{
    Dwarf_Attribute attribute;
    if (dwarf_attr_integrate(&function, DW_AT_linkage_name, &attribute) == nullptr &&
        dwarf_attr_integrate(&function, DW_AT_MIPS_linkage_name, &attribute) == nullptr)
        return nullptr;
    return dwarf_formstring(&attribute);
}

const char* symbolName(const CodeScopes& scopes)
{
    GElf_Off offset = 0;
    GElf_Sym symbol;
    return dwfl_module_addrinfo(scopes.module, scopes.address, &offset, &symbol, nullptr, nullptr, nullptr);
}

// Leads from a function's code to its definition and on to its declaration in a class.
bool followOrigin(Dwarf_Die& entry)
{
    for (const unsigned reference : {DW_AT_abstract_origin, DW_AT_specification}) {
        Dwarf_Attribute attribute;
        if (dwarf_attr(&entry, reference, &attribute) != nullptr)
            return dwarf_formref_die(&attribute, &entry) != nullptr;
    }
    return false;
}

void appendScopeName(Dwarf_Die& scope, TextBuffer& text)
{
    const char* name = dwarf_diename(&scope);
    if (name != nullptr)
        text.append(name);
    else
        text.append(dwarf_tag(&scope) == DW_TAG_namespace ? "(anonymous namespace)" : "(unnamed)");
}

bool isNamedScope(int tag)
{
    return tag == DW_TAG_namespace || tag == DW_TAG_structure_type || tag == DW_TAG_class_type ||
           tag == DW_TAG_union_type || tag == DW_TAG_subprogram;
}

// The last child that begins before `entry` or is it.
Dwarf_Die childAround(Dwarf_Die& scope, const Dwarf_Die& entry)
{
    Dwarf_Die around{};
    Dwarf_Die next;
    findChild(scope, next, [&](Dwarf_Die& child) {
        if (child.addr <= entry.addr)
            around = child;
        return child.addr >= entry.addr;
    });
    return around;
}

void writeQualifiedName(Dwarf_Die entry, TextBuffer& text, int depth)
{
    constexpr int maxNesting = 8; // of functions and their local classes
    for (int i = 0; i < 4 && followOrigin(entry); ++i)
        ;
    Dwarf_Die scope;
    if (depth == maxNesting || dwarf_diecu(&entry, &scope, nullptr, nullptr) == nullptr)
        return appendScopeName(entry, text);

    // Nothing leads from an entry to the one around it; but they lie in the order of their beginnings.
    Dwarf_Die scopes[CodeScopes::maxDepth];
    std::size_t count = 0;
    while (count < std::size(scopes)) {
        scope = childAround(scope, entry);
        if (scope.addr == nullptr || scope.addr == entry.addr)
            break;
        if (dwarf_tag(&scope) == DW_TAG_subprogram)
            count = 0; // its own name has what is around it
        if (isNamedScope(dwarf_tag(&scope)))
            scopes[count++] = scope;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (dwarf_tag(&scopes[i]) == DW_TAG_subprogram)
            writeQualifiedName(scopes[i], text, depth + 1);
        else
            appendScopeName(scopes[i], text);
        text.append("::");
    }
    appendScopeName(entry, text);
}

} // namespace

void writeQualifiedName(Dwarf_Die entry, TextBuffer& text) { writeQualifiedName(entry, text, 0); }

// The symbol table has the full name of functions that are local to their file, where g++ records only the
// last part; it knows nothing of inlined ones.
void writeFunctionName(const CodeScopes& scopes, Dwarf_Die* function, Parameters parameters, TextBuffer& text)
{
    const char* name = function != nullptr ? linkageName(*function) : nullptr;
    const bool isInlined = function != nullptr && dwarf_tag(function) == DW_TAG_inlined_subroutine;
    if (name == nullptr && !isInlined && scopes.module != nullptr)
        name = symbolName(scopes);
    if (name != nullptr)
        writeReadable(name, parameters, text);
    else if (function != nullptr)
        writeQualifiedName(*function, text);
}

} // namespace orvi::debug
