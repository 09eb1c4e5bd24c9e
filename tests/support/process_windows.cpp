// (before the headers that need its types)
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <psapi.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "common/handles.h"
#include "common/text.h"
#include "tests/support/process_port.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void ThrowLastError(const std::string& what) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

// A test's own output is bytes, too.
[[maybe_unused]] const int outputMode = _setmode(_fileno(stdout), _O_BINARY);

// As the C library takes a command line apart.
WString Quoted(const std::string& argument) {
    WString text = TEXT("\"");
    std::size_t backslashes = 0;
    for (const WCHAR unit : Utf8ToWide(argument)) {
        if (unit == '"') text.append(backslashes + 1, '\\');
        backslashes = unit == '\\' ? backslashes + 1 : 0;
        text += unit;
    }
    return text.append(backslashes, '\\') + TEXT('"');
}

// The options' variables before the own ones: the first of two of a name counts.
WString EnvironmentWith(const ProcessOptions& options) {
    WString block;
    for (const auto& [name, value] : options.environment) {
        block.append(Utf8ToWide(name + "=" + value)).append(1, 0);
    }
    WCHAR* const own = GetEnvironmentStringsW();
    for (const WCHAR* entry = own; *entry != 0; entry += WStringView(entry).size() + 1) {
        block.append(entry).append(1, 0);
    }
    FreeEnvironmentStringsW(own);
    return block;
}

// The reading end is the test's own alone. More than its size waits until the test looks.
struct Pipe {
    UniqueHandle reading;
    UniqueHandle writing;

    Pipe() {
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        if (!CreatePipe(reading.put(), writing.put(), &inherited, 1 << 20)) ThrowLastError("pipe");
        SetHandleInformation(reading.get(), HANDLE_FLAG_INHERIT, 0);
    }
    void TakeInto(std::string& text) const {
        DWORD size = 0;
        while (PeekNamedPipe(reading.get(), nullptr, 0, nullptr, &size, nullptr) && size != 0) {
            std::string part(size, 0);
            if (!ReadFile(reading.get(), part.data(), size, &size, nullptr)) return;
            text.append(part, 0, size);
        }
    }
};

void EndLinesAsOnLinux(std::string& text) {
    for (auto at = text.find("\r\n"); at != text.npos; at = text.find("\r\n", at)) {
        text.erase(at, 1);
    }
}

std::chrono::milliseconds ProcessorTimeOf(HANDLE process) {
    FILETIME ignored{};
    FILETIME kernel{};
    FILETIME user{};
    GetProcessTimes(process, &ignored, &ignored, &kernel, &user);
    constexpr DWORD kTicks = 10'000;  // in a millisecond
    return std::chrono::milliseconds((kernel.dwLowDateTime + user.dwLowDateTime) / kTicks);
}

class WindowsProcess : public ChildProcess {
  public:
    WindowsProcess(fs::path program, const std::vector<std::string>& arguments,
                   const ProcessOptions& options) {
        if (options.account) throw std::invalid_argument("no other accounts");
        if (!fs::exists(program)) program += ".exe";
        program.make_preferred();
        WString line = Quoted(program.string());
        for (const std::string& argument : arguments) line += TEXT(" ") + Quoted(argument);
        WString environment = EnvironmentWith(options);
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        const fs::path source = options.input.empty() ? "NUL" : options.input;
        const UniqueHandle input(CreateFileW(source.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                             &inherited, OPEN_EXISTING, 0, nullptr));
        STARTUPINFOW start{};
        start.cb = sizeof start;
        start.dwFlags = STARTF_USESTDHANDLES;
        start.hStdInput = input.get();
        start.hStdOutput = output_.writing.get();
        start.hStdError = errors_.writing.get();
        PROCESS_INFORMATION made{};
        if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                            CREATE_UNICODE_ENVIRONMENT, environment.data(),
                            options.workingFolder.empty() ? nullptr : options.workingFolder.c_str(),
                            &start, &made)) {
            ThrowLastError(program.string());
        }
        CloseHandle(made.hThread);
        process_.reset(made.hProcess);
        id_ = made.dwProcessId;
        output_.writing.reset();
        errors_.writing.reset();
    }

    unsigned Id() const override { return id_; }
    bool EndsWithin(std::chrono::milliseconds time, ProcessResult& result) override {
        const auto limit = static_cast<DWORD>(time.count());
        if (WaitForSingleObject(process_.get(), limit) != WAIT_OBJECT_0) return false;
        DWORD code = 0;
        GetExitCodeProcess(process_.get(), &code);
        // An exception ends a process with its own code, with the two highest bits set.
        const bool isSignal = code >= 0xC0000000;
        result.exitCode = isSignal ? -1 : static_cast<int>(code);
        if (isSignal) result.signal = code == ~0U ? signal_ : SIGSEGV;
        PROCESS_MEMORY_COUNTERS memory{};
        memory.cb = sizeof memory;
        GetProcessMemoryInfo(process_.get(), &memory, sizeof memory);
        result.peakMemory = memory.PeakWorkingSetSize;
        return true;
    }
    void TakeOutput(ProcessResult& result) override {
        output_.TakeInto(result.output);
        errors_.TakeInto(result.errors);
        for (std::string* text : {&result.output, &result.errors}) EndLinesAsOnLinux(*text);
    }
    std::chrono::milliseconds ProcessorTime() const override {
        return ProcessorTimeOf(process_.get());
    }
    // Windows knows no signals, but every one of them ends a program that does not expect it.
    void Signal(int signal) override {
        signal_ = signal;
        TerminateProcess(process_.get(), ~0U);
    }

  private:
    Pipe output_;
    Pipe errors_;
    UniqueHandle process_;
    DWORD id_ = 0;
    int signal_ = 0;
};

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::Start(const fs::path& program,
                                                  const std::vector<std::string>& arguments,
                                                  const ProcessOptions& options) {
    return std::make_unique<WindowsProcess>(program, arguments, options);
}

fs::path PathOfThisProgram() {
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}

std::chrono::milliseconds ProcessorTimeOfThisProcess() {
    return ProcessorTimeOf(GetCurrentProcess());
}
