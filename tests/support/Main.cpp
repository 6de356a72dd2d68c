#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#define DOCTEST_CONFIG_NO_POSIX_SIGNALS // the library's own handling of faults is under test
#include <doctest/doctest.h>
