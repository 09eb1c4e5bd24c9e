#include "common/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "common/console_text.h"
#include "common/format.h"

Utf8Arguments ReadArguments(int argc, WCHAR* const* argv) {
    Utf8Arguments arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.words.push_back(WideToUtf8(argv[i]));
        if (Utf8ToWide(arguments.words.back()) == argv[i]) continue;
        return {{}, FormatWide(TEXT("argument %d is not valid Unicode text"), i)};
    }
    return arguments;
}

std::optional<int> ReadCommandLine(CLI::App& app, int argc, WCHAR* const* argv, int usageError) {
    const WString program = Utf8ToWide(app.get_name());
    auto [words, fault] = ReadArguments(argc, argv);
    if (!fault.empty()) {
        WriteErrorText(program + TEXT(": ") + fault + TEXT("\n"));
        return usageError;
    }
    try {
        std::ranges::reverse(words);  // as this form of parse() takes them
        app.parse(std::move(words));
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        std::ostringstream answer;
        std::ostringstream complaint;
        const int result = app.exit(error, answer, complaint);
        WriteConsoleText(Utf8ToWide(answer.str()));
        if (result == 0) return 0;
        WriteErrorText(program + TEXT(": ") + Utf8ToWide(complaint.str()));
        return usageError;
    }
}
