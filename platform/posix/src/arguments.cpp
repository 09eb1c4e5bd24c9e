#include <winbase.h>

#include <cstring>
#include <string>
#include <vector>

#include "../entry/wide_arguments.h"
#include "text.h"

extern "C" int RunWithWideArguments(int argc, char** argv, int (*program)(int argc, WCHAR** argv)) {
    // 1. No word has more units than bytes: the memory never moves, and leaves no copy behind.
    std::u16string text;
    std::size_t size = 0;
    for (int i = 0; i < argc; ++i) size += std::strlen(argv[i]) + 1;
    text.reserve(size);
    // 2. The words, and the null that ends them.
    std::vector<WCHAR*> words;
    for (int i = 0; i < argc; ++i) {
        std::u16string word = platform::WideOf(argv[i]);
        words.push_back(text.data() + text.size());
        text.append(word).push_back(u'\0');
        SecureZeroMemory(word.data(), word.size() * sizeof(WCHAR));
    }
    words.push_back(nullptr);
    const int exitCode = program(argc, words.data());
    SecureZeroMemory(text.data(), text.size() * sizeof(WCHAR));
    return exitCode;
}
