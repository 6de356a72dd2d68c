#include "StackVisit.h"

#include "StackWalk.h"
#include "base/Memory.h"
#include "symbols/Names.h"
#include "symbols/SourcePlace.h"
#include "symbols/Values.h"
#include "symbols/Variables.h"
#include <dwarf.h>

namespace orvi::debug {
namespace {

constinit SourcePlace shownPlace{}; // not on the stack: a signal handler's may be small

using ShowValue = void (*)(void* context, const char* name, const char* value);

bool isParameter(Dwarf_Die& entry) { return dwarf_tag(&entry) == DW_TAG_formal_parameter; }

bool isParameterPack(Dwarf_Die& entry) { return dwarf_tag(&entry) == DW_TAG_GNU_formal_parameter_pack; }

// What code was made of: with inlined and cloned functions it alone has all parameters in their order.
bool findOrigin(Dwarf_Die& entry, Dwarf_Die& origin)
{
    Dwarf_Attribute attribute;
    return dwarf_formref_die(dwarf_attr(&entry, DW_AT_abstract_origin, &attribute), &origin) != nullptr;
}

bool findMadeOf(const Dwarf_Die& origin, Dwarf_Die& scope, Dwarf_Die& parameter)
{
    Dwarf_Die child;
    return findChild(scope, child, [&](Dwarf_Die& entry) {
        if (isParameterPack(entry))
            return findMadeOf(origin, entry, parameter);
        Dwarf_Die itsOrigin;
        parameter = entry;
        return isParameter(entry) && findOrigin(entry, itsOrigin) && itsOrigin.addr == origin.addr;
    });
}

bool isDeclaration(Dwarf_Die& variable)
{
    Dwarf_Attribute attribute;
    return dwarf_attr(&variable, DW_AT_declaration, &attribute) != nullptr;
}

/** The calls that one frame stands for: several where functions were inlined. */
class FrameVisit {
public:
    FrameVisit(Dwfl* dwfl, const StackWalk& walk, const OrviDebugStackVisitor& visitor)
        : _scopes(dwfl, walk.frame().codeAddress())
        , _variables(dwfl, walk.frame(), walk.caller(), _scopes)
        , _address(walk.frame().get(Frame::Rip))
        , _visitor(visitor)
    {}

    /** Shows at most `maxCalls`, innermost first; gives their number. */
    std::size_t showCalls(std::size_t maxCalls);

private:
    void showFunction(Dwarf_Die* function);
    void showParameters(Dwarf_Die& function);
    void showParameters(Dwarf_Die& scope, Dwarf_Die& function, const char* nameOfUnnamed);
    void showVariables(Dwarf_Die& scope);
    void showValue(Dwarf_Die& variable, const char* name, ShowValue show);

    CodeScopes _scopes;
    Variables _variables;
    std::uintptr_t _address;
    const OrviDebugStackVisitor& _visitor;
};

std::size_t FrameVisit::showCalls(std::size_t maxCalls)
{
    findLine(_scopes, shownPlace);
    if (_scopes.depth == 0) {
        showFunction(nullptr);
        _visitor.parametersEnd(_visitor.context);
        return 1;
    }
    std::size_t calls = 0;
    for (std::size_t end = _scopes.depth; end > 0 && calls < maxCalls; ++calls) {
        const std::size_t begin = _scopes.innermostFunction(end);
        showFunction(&_scopes.chain[begin]);
        showParameters(_scopes.chain[begin]);
        _visitor.parametersEnd(_visitor.context);
        for (std::size_t i = begin; i < end; ++i)
            showVariables(_scopes.chain[i]);
        findCallLine(_scopes, _scopes.chain[begin], shownPlace);
        end = begin;
    }
    return calls;
}

void FrameVisit::showFunction(Dwarf_Die* function)
{
    TextBuffer name(shownPlace.function);
    writeFunctionName(_scopes, function, Parameters::Dropped, name);
    const OrviDebugFrame frame{_address, nullIfEmpty(shownPlace.function), nullIfEmpty(shownPlace.file),
                               shownPlace.line};
    _visitor.frame(_visitor.context, &frame);
}

void FrameVisit::showParameters(Dwarf_Die& function)
{
    Dwarf_Die origin;
    showParameters(findOrigin(function, origin) ? origin : function, function, "(unnamed)");
}

// Those of `scope`, with the values that `function` has for them.
void FrameVisit::showParameters(Dwarf_Die& scope, Dwarf_Die& function, const char* nameOfUnnamed)
{
    forEachChild(scope, [&](Dwarf_Die& child) {
        const char* name = dwarf_diename(&child);
        if (name == nullptr)
            name = nameOfUnnamed;
        Dwarf_Die made;
        if (isParameterPack(child)) // its parameters share its name
            showParameters(child, function, name);
        else if (isParameter(child))
            showValue(findMadeOf(child, function, made) ? made : child, name, _visitor.parameter);
    });
}

void FrameVisit::showVariables(Dwarf_Die& scope)
{
    forEachChild(scope, [this](Dwarf_Die& child) {
        const char* name = dwarf_diename(&child);
        if (dwarf_tag(&child) == DW_TAG_variable && name != nullptr && !isDeclaration(child))
            showValue(child, name, _visitor.variable);
    });
}

void FrameVisit::showValue(Dwarf_Die& variable, const char* name, ShowValue show)
{
    char shortName[256];
    TextBuffer(shortName).append(name);
    char value[1024];
    TextBuffer valueText(value);
    writeValue(variable, _variables.find(variable), valueText);
    show(_visitor.context, shortName, value);
}

} // namespace

void visitStack(Dwfl* dwfl, const ucontext_t& registers, std::size_t maxFrames,
                const OrviDebugStackVisitor& visitor)
{
    const MemoryCache cache;
    StackWalk walk(dwfl, registers);
    for (std::size_t left = maxFrames; left > 0;) {
        left -= FrameVisit(dwfl, walk, visitor).showCalls(left);
        if (!walk.moveToCaller())
            return;
    }
}

} // namespace orvi::debug
