// The C library reads bytes. It is given a narrow copy of the wide words in which every UTF-16 unit
// is exactly one byte - an ASCII character itself, any other a byte that is in no switch - so an
// offset in the narrow word is the same offset in the wide word.
#include <getopt.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "common/secure_text.h"

namespace {

constexpr char kOther = '\xFF';

char NarrowUnit(WCHAR unit) {
    return unit < 0x80 ? static_cast<char>(unit) : kOther;
}

std::string Narrow(WStringView text) {
    std::string narrow;
    for (const WCHAR unit : text) narrow += NarrowUnit(unit);
    return narrow;
}

// The narrow copy of one argument vector. Its text may hold a password and is wiped.
class NarrowCopy {
  public:
    NarrowCopy(int argc, WCHAR* const* argv) : vector_(argv), wide_(argv, argv + argc) {
        std::size_t size = 0;
        for (const WCHAR* word : wide_) size += WStringView(word).size() + 1;
        text_.reserve(size);
        for (WCHAR* word : wide_) {
            pointers_.push_back(text_.data() + text_.size());
            words_.push_back({pointers_.back(), word});
            for (const WCHAR unit : WStringView(word)) text_.push_back(NarrowUnit(unit));
            text_.push_back('\0');
        }
        pointers_.push_back(nullptr);
    }

    // Whether this is the copy of the vector in the order in which it was left, and of its text.
    bool IsOf(int argc, WCHAR* const* argv) const {
        if (argv != vector_ || !std::equal(wide_.begin(), wide_.end(), argv, argv + argc)) {
            return false;
        }
        return std::ranges::all_of(words_, [](const Word& word) {
            const WStringView text = word.wide;
            return std::ranges::equal(text, std::string_view(word.narrow), {}, NarrowUnit);
        });
    }

    char** Pointers() { return pointers_.data(); }

    // Moves the wide words to where the C library moved their copies.
    void FollowPermutation() {
        auto* argv = const_cast<WCHAR**>(vector_);
        for (std::size_t i = 0; i < wide_.size(); ++i) {
            wide_[i] = WordAt(pointers_[i]).wide;
            argv[i] = wide_[i];
        }
    }

    // The wide position of a position in the copy.
    WCHAR* WidePosition(const char* position) const {
        if (position == nullptr) return nullptr;
        const Word& word = WordAt(position);
        return word.wide + (position - word.narrow);
    }

  private:
    struct Word {
        const char* narrow;
        WCHAR* wide;
    };

    // The word whose copy holds the position; words_ is in the order of the text.
    const Word& WordAt(const char* position) const {
        const auto after = std::upper_bound(
            words_.begin(), words_.end(), position,
            [](const char* at, const Word& word) { return std::less<>()(at, word.narrow); });
        return *(after - 1);
    }

    WCHAR* const* vector_;
    std::vector<WCHAR*> wide_;  // as it was left
    std::vector<char, WipingAllocator<char>> text_;
    std::vector<Word> words_;
    std::vector<char*> pointers_;
};

// What lasts from one call to the next; none before the first call and after the last one of a
// scan.
std::optional<NarrowCopy> lastCopy;

int NextSwitch(int argc, WCHAR* const* argv, const WCHAR* shortOptions,
               const utils::option* longOptions, int* longIndex) {
    if (!lastCopy || !lastCopy->IsOf(argc, argv)) {
        lastCopy.emplace(argc, argv);
        ::optind = 0;  // the C library's sign to start over
    }
    NarrowCopy& copy = *lastCopy;

    const std::string letters = Narrow(shortOptions);
    std::vector<std::string> names;
    for (const auto* row = longOptions; row != nullptr && row->name != nullptr; ++row) {
        names.push_back(Narrow(row->name));
    }
    std::vector<::option> table;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const utils::option& row = longOptions[i];
        table.push_back({names[i].c_str(), row.has_arg, row.flag, row.val});
    }
    table.push_back({});

    ::opterr = 0;
    const int result =
        ::getopt_long(argc, copy.Pointers(), letters.c_str(), table.data(), longIndex);
    copy.FollowPermutation();
    utils::optarg = copy.WidePosition(::optarg);
    if (result == -1) lastCopy.reset();
    return result;
}

}  // namespace

namespace utils {

WCHAR* optarg = nullptr;

int getopt_long(int argc, WCHAR* const* argv, const WCHAR* shortOptions, const option* longOptions,
                int* longIndex) {
    // Without memory the run ends with its usage, not with half its switches.
    return Guarded(int{'?'}, [&] {
        if (argv == nullptr || shortOptions == nullptr || argc < 1) return -1;
        return NextSwitch(argc, argv, shortOptions, longOptions, longIndex);
    });
}

}  // namespace utils
