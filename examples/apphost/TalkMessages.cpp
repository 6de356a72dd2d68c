#include "TalkMessages.h"

namespace apphost {

ORVI_DEFINE_MESSAGE(Saying)
{
    table.add(L"speaker", &Saying::speaker);
    table.add(L"text", &Saying::text);
}

ORVI_DEFINE_MESSAGE(Number)
{
    table.add(L"run", &Number::run);
    table.add(L"value", &Number::value);
    table.add(L"last", &Number::last);
    table.add(L"wantsAnswer", &Number::wantsAnswer);
}

ORVI_DEFINE_MESSAGE(Counted)
{
    table.add(L"run", &Counted::run);
    table.add(L"value", &Counted::value);
    table.add(L"inOrder", &Counted::inOrder);
}

ORVI_DEFINE_MESSAGE(Question)
{
    table.add(L"left", &Question::left);
    table.add(L"right", &Question::right);
}

ORVI_DEFINE_MESSAGE(Answer) { table.add(L"sum", &Answer::sum); }

} // namespace apphost
