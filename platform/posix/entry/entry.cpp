// main() of a program that has a wmain().
#include <sys/stat.h>
#include <winbase.h>

#include <csignal>
#include <vector>

#include "wide_arguments.h"

extern "C" int wmain(int argc, WCHAR** argv);

namespace {

// The arguments as wide text. They may hold passwords: nothing of them is left when it goes.
class WideArguments {
  public:
    WideArguments(int argc, char** argv) {
        // 1. One block for all, so that it is still whole after the program reordered its words.
        std::size_t size = 0;
        for (int i = 0; i < argc; ++i) size += WideArgumentSize(argv[i]);
        text_.resize(size);
        // 2. The words, and the null that ends them.
        WCHAR* next = text_.data();
        for (int i = 0; i < argc; ++i) {
            words_.push_back(next);
            next += WidenArgument(argv[i], next);
        }
        words_.push_back(nullptr);
    }
    WideArguments(const WideArguments&) = delete;
    WideArguments& operator=(const WideArguments&) = delete;
    ~WideArguments() { SecureZeroMemory(text_.data(), text_.size() * sizeof(WCHAR)); }

    WCHAR** Words() { return words_.data(); }

  private:
    std::vector<WCHAR> text_;
    std::vector<WCHAR*> words_;
};

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away is an error code, not the end of the program.
    std::signal(SIGPIPE, SIG_IGN);
    // What a program makes belongs to its account alone, as in a user's own folders on Windows,
    // unless it says otherwise.
    umask(S_IRWXG | S_IRWXO);
    WideArguments arguments(argc, argv);
    return wmain(argc, arguments.Words());
}
