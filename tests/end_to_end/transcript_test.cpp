// The command lines in tests/transcripts, compared with what they print (README.md there).
#include <fstream>
#include <regex>
#include <sstream>

#include "common/product_version.h"
#include "tests/end_to_end/client_machine.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> WordsOf(const std::string& line) {
    static const std::regex word("'([^']*)'|(\\S+)");
    std::vector<std::string> words;
    for (std::sregex_iterator at(line.begin(), line.end(), word), end; at != end; ++at) {
        words.push_back((*at)[2].matched ? (*at)[2] : (*at)[1]);
    }
    return words;
}

// Standard error with its mark in front of each line.
std::string Marked(const std::string& errors) {
    std::istringstream lines(errors);
    std::string marked;
    for (std::string line; std::getline(lines, line);) marked += "! " + line + "\n";
    return marked;
}

std::string Normalized(std::string text) {
    static const std::regex day("[0-9]{4}/[0-9]{2}/[0-9]{2}");
    for (const std::string version : {SENTREL_VERSION, SENTREL_SHORT_VERSION}) {
        for (std::size_t at = 0; (at = text.find(version, at)) != std::string::npos;) {
            text.replace(at, version.size(), "VERSION");
        }
    }
    static const std::regex safety("[^ '\"]*[\\\\/]safety[\\\\/][^ '\"]*[.]xml");
    return std::regex_replace(std::regex_replace(text, day, "DATE"), safety, "SAFETY");
}

class TranscriptTest : public ClientMachine, public testing::WithParamInterface<const char*> {
  protected:
    // Runs one command line; what it prints and its exit code.
    std::string Run(std::vector<std::string> words) {
        const auto file = [&](std::size_t i) { return ScratchFolder() / words[i]; };
        if (words[0] == "write") {
            WriteWholeFile(file(1), words[2] + "\n");
            return "";
        }
        if (words[0] == "edit") {
            std::string text = ReadWholeFile(file(1));
            const std::size_t at = text.find(words[3]);
            if (at == std::string::npos) return "not found: " + words[3] + "\n";
            WriteWholeFile(file(2), text.replace(at, words[3].size(), words[4]));
            return "";
        }
        ProcessOptions options;
        options.workingFolder = ScratchFolder();
        if (words.size() > 2 && words[words.size() - 2] == "<") {
            options.input = file(words.size() - 1);
            words.resize(words.size() - 2);
        }
        const ProcessResult result =
            RunProgram(words[0], {words.begin() + 1, words.end()}, options);
        return Normalized(result.output) + Marked(Normalized(result.errors)) + "[" +
               std::to_string(result.exitCode) + "]\n";
    }
};

TEST_P(TranscriptTest, PrintsWhatItSays) {
    const std::string expected =
        ReadText(fs::path(TRANSCRIPTS) / (std::string(GetParam()) + ".txt"));
    ASSERT_NE(expected, "");
    std::istringstream lines(expected);
    std::string actual;
    bool isOutput = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("$ ")) {
            const std::string printed = Run(WordsOf(line.substr(2)));
            actual += line + "\n" + printed;
            isOutput = !printed.empty();
        } else if (line.starts_with("[")) {
            isOutput = isOutput && !std::regex_match(line, std::regex("\\[-?[0-9]+\\]"));
        } else if (!isOutput) {
            actual += line + "\n";
        }
    }
    EXPECT_EQ(actual, expected);
}

INSTANTIATE_TEST_SUITE_P(Of, TranscriptTest,
                         testing::Values("create", "verify", "show", "diff", "rekey", "restore"),
                         [](const auto& name) { return std::string(name.param); });

}  // namespace
