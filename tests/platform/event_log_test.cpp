// The log of events.
#include <windows.h>

#include <string>

#include "tests/support/last_error.h"
#include "tests/support/machine.h"
#include "tests/support/system_log.h"

namespace {

BOOL Report(HANDLE source, WORD type) {
    LPCWSTR strings[] = {TEXT("100 %s"), TEXT("größer")};
    return ReportEventW(source, type, 0, 1, nullptr, 2, 0, strings, nullptr);
}

TEST(EventLog, TakesTheRecordsOfASource) {
    const SystemLog log;
    if (!log) GTEST_SKIP() << "without " << kSystemLog;
    const HANDLE source = RegisterEventSourceW(nullptr, TEXT("sample"));
    ASSERT_NE(source, nullptr);
    // User's messages: 8, and the level: error 3, warning 4, information 6.
    for (const auto& [type, priority] : {std::pair<WORD, const char*>{EVENTLOG_ERROR_TYPE, "<11>"},
                                         {EVENTLOG_WARNING_TYPE, "<12>"},
                                         {EVENTLOG_INFORMATION_TYPE, "<14>"},
                                         {EVENTLOG_SUCCESS, "<14>"}}) {
        EXPECT_TRUE(Report(source, type));
        const std::string record = log.Next();
        EXPECT_EQ(record.substr(0, 4), priority);
        EXPECT_NE(
            record.find(" sample[" + std::to_string(GetCurrentProcessId()) + "]: 100 %s größer"),
            std::string::npos)
            << record;
    }
    EXPECT_EQ(log.Next(), "");
    EXPECT_TRUE(DeregisterEventSource(source));
    EXPECT_EQ(ErrorOf(Report(source, EVENTLOG_SUCCESS)), ERROR_INVALID_HANDLE);
}

}  // namespace
