// For the targets that hand text to QJsonDocument::fromJson. Qt 5.15's parser leaks
// the earlier value of a key that an object repeats, when that value is an array or
// an object (Qt 6's does not); the library passes such text to Qt as it came. That
// one leak is suppressed, by its full stack: Qt has no frame pointers, so the
// allocation's stack is unwound the slow way in these targets.
#ifndef ZRUTILS_FUZZ_QT5JSONLEAK_H
#define ZRUTILS_FUZZ_QT5JSONLEAK_H

#include <QtGlobal>

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:QJsonDocument::fromJson\n";
}

extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}
#endif

#endif
