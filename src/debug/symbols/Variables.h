#pragma once
#include "CodeScopes.h"
#include "Expression.h"

namespace orvi::debug {

/** Finds where the parameters and the variables of one frame are, inlined functions' among them. */
class Variables final : Surroundings {
public:
    /** Borrows all of them; the registers of the caller, which may be null, tell what it passed. */
    Variables(Dwfl* dwfl, const Frame& frame, const Frame* caller, CodeScopes& scopes)
        : _dwfl(dwfl)
        , _frame(frame)
        , _caller(caller)
        , _scopes(scopes)
    {}

    /** Empty: the compiler kept nothing of it here, or a register that has been overwritten since. */
    std::optional<Operand> find(Dwarf_Die& variable);

private:
    std::optional<std::uint64_t> resolve(const Dwarf_Op& operation) override;
    std::optional<Operand> evaluateAttribute(Dwarf_Attribute& attribute);
    std::optional<std::uint64_t> frameBase();
    std::optional<std::uint64_t> implicitValue(const Dwarf_Op& operation);
    std::optional<std::uint64_t> entryValue(const Dwarf_Op& operation);

    Dwfl* _dwfl;
    const Frame& _frame;
    const Frame* _caller;
    CodeScopes& _scopes;
    Dwarf_Attribute* _attribute = nullptr; // whose expression is computed
};

} // namespace orvi::debug
