#include "admin/event_record.h"

#include <windows.h>

#include "common/format.h"
#include "common/handles.h"

namespace {

constexpr const WCHAR* kSource = TEXT("snbackup");

// The number of the only message: "%1".
constexpr DWORD kMessage = 1;

struct EventSourceKind {
    using Type = HANDLE;
    static bool IsOpen(HANDLE source) { return source != nullptr; }
    static void Close(HANDLE source) { DeregisterEventSource(source); }
};

}  // namespace

void RecordOperation(WStringView command, WStringView file, ExitCode outcome) {
    const UniqueResource<EventSourceKind> source(RegisterEventSourceW(nullptr, kSource));
    if (!source) return;
    const WString text = FormatWide(TEXT("%s %s: %s"), WString(command).c_str(),
                                    OneLine(file).c_str(), Utf8ToWide(NameOf(outcome)).c_str());
    const WCHAR* strings[] = {text.c_str()};
    const WORD type = outcome == ExitCode::kGood ? EVENTLOG_INFORMATION_TYPE : EVENTLOG_ERROR_TYPE;
    ReportEventW(source.get(), type, 0, kMessage, nullptr, 1, 0, strings, nullptr);
}
