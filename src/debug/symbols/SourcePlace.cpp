#include "SourcePlace.h"

#include "Names.h"
#include "base/TextBuffer.h"
#include <dwarf.h>
#include <string_view>

namespace orvi::debug {
namespace {

// libdw puts the directory of the build before a name that is relative. Where that directory is relative
// itself, the compiler was told to shorten paths, and the name is complete.
std::string_view withoutRelativeDirectory(std::string_view file, Dwarf_Die* unit)
{
    Dwarf_Attribute attribute;
    const char* name = dwarf_formstring(dwarf_attr(unit, DW_AT_comp_dir, &attribute));
    const std::string_view directory = name != nullptr ? name : "";
    if (directory.empty() || directory.front() == '/' || !file.starts_with(directory))
        return file;
    const std::string_view rest = file.substr(directory.size());
    return rest.starts_with('/') ? rest.substr(1) : file;
}

void setFile(SourcePlace& place, const char* file, Dwarf_Die* unit)
{
    TextBuffer(place.file).append(withoutRelativeDirectory(file, unit));
}

int numberOf(Dwarf_Die& entry, unsigned name)
{
    Dwarf_Attribute attribute;
    Dwarf_Word number = 0;
    return dwarf_formudata(dwarf_attr(&entry, name, &attribute), &number) == 0 ? static_cast<int>(number) : 0;
}

} // namespace

void findLine(const CodeScopes& scopes, SourcePlace& place)
{
    place.file[0] = '\0';
    place.line = 0;
    Dwarf_Line* line = scopes.unit == nullptr ? nullptr : dwarf_getsrc_die(scopes.unit, scopes.fileAddress());
    const char* file = line == nullptr ? nullptr : dwarf_linesrc(line, nullptr, nullptr);
    if (file == nullptr)
        return;
    setFile(place, file, scopes.unit);
    dwarf_lineno(line, &place.line);
}

void findCallLine(CodeScopes& scopes, Dwarf_Die& inlined, SourcePlace& place)
{
    place.file[0] = '\0';
    place.line = 0;
    Dwarf_Files* files = nullptr;
    std::size_t count = 0;
    const auto number = static_cast<std::size_t>(numberOf(inlined, DW_AT_call_file));
    if (dwarf_getsrcfiles(&scopes.functionUnit, &files, &count) != 0 || number >= count)
        return;
    const char* file = dwarf_filesrc(files, number, nullptr, nullptr);
    if (file == nullptr)
        return;
    setFile(place, file, scopes.unit);
    place.line = numberOf(inlined, DW_AT_call_line);
}

void findSourcePlace(Dwfl* dwfl, std::uintptr_t address, SourcePlace& place)
{
    CodeScopes scopes(dwfl, address);
    findLine(scopes, place);
    Dwarf_Die* function = scopes.depth > 0 ? &scopes.chain[scopes.innermostFunction(scopes.depth)] : nullptr;
    TextBuffer name(place.function);
    writeFunctionName(scopes, function, Parameters::Kept, name);
}

} // namespace orvi::debug
