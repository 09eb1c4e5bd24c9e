#include "reg_file.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "common/format.h"

namespace {

constexpr WStringView kFirstLine = TEXT("Windows Registry Editor Version 5.00");
constexpr WStringView kLineEnd = TEXT("\r\n");
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::size_t kWidth = 80;           // of a line with hex digits
constexpr std::size_t kMaxData = 64u << 20;  // what the registry takes

bool IsBlank(WCHAR unit) {
    return unit == ' ' || unit == '\t';
}

bool IsHexDigit(WCHAR unit) {
    return unit < 0x80 && std::isxdigit(unit) != 0;
}

WString TextOfFile(std::string_view bytes) {
    if (bytes.starts_with(kUtf16Mark)) {
        if (bytes.size() % 2 != 0) throw RegFileError{1, "half a character at the end of the file"};
        WString text((bytes.size() - kUtf16Mark.size()) / sizeof(WCHAR), WCHAR{0});
        std::memcpy(text.data(), bytes.data() + kUtf16Mark.size(), text.size() * sizeof(WCHAR));
        return text;
    }
    if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
    WString text = Utf8ToWide(bytes);
    const std::string read = WideToUtf8(text);
    if (read == bytes) return text;
    const auto* const wrong = std::ranges::mismatch(bytes, read).in1;
    const auto lines = static_cast<std::size_t>(std::count(bytes.begin(), wrong, '\n'));
    throw RegFileError{lines + 1, "text that is not UTF-8"};
}

// Reads the lines from the first to the last; fails by throwing RegFileError.
class Reader {
  public:
    explicit Reader(WString text) : text_(std::move(text)), unread_(text_) {}

    std::vector<RegOperation> ReadFile() {
        NextLine();
        if (!Skip(kFirstLine)) Fail("not a registry file of version 5.00");
        ReadEnd();
        while (NextLine()) ReadLine();
        return std::move(operations_);
    }

  private:
    [[noreturn]] void Fail(const char* what) const { throw RegFileError{line_, what}; }

    // False at the end of the file.
    bool NextLine() {
        if (isLast_) return false;
        ++line_;
        const std::size_t end = unread_.find(WCHAR{'\n'});
        isLast_ = end == WStringView::npos;
        rest_ = unread_.substr(0, end);
        if (!isLast_) unread_.remove_prefix(end + 1);
        if (rest_.ends_with(WCHAR{'\r'})) rest_.remove_suffix(1);
        if (rest_.find(WCHAR{0}) != WStringView::npos) Fail("a null character");
        return true;
    }
    void SkipBlanks() {
        while (!rest_.empty() && IsBlank(rest_.front())) rest_.remove_prefix(1);
    }
    bool AtEnd() const { return rest_.empty() || rest_.front() == ';'; }
    bool Skip(WStringView text) {
        if (!EqualIgnoringCase(rest_.substr(0, text.size()), text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    void ReadEnd() {
        SkipBlanks();
        if (!AtEnd()) Fail("unexpected text at the end of the line");
    }

    void ReadLine() {
        SkipBlanks();
        if (AtEnd()) return;
        if (rest_.front() == '[') return ReadKey();
        ReadValue();
    }

    // The name ends at the line's last bracket, since it may hold some itself.
    void ReadKey() {
        const std::size_t end = rest_.rfind(WCHAR{']'});
        if (end == WStringView::npos) Fail("a key without a closing bracket");
        WStringView text = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        ReadEnd();
        const bool deletes = text.starts_with(WCHAR{'-'});
        if (deletes) text.remove_prefix(1);
        auto key = ParseKeyName(text, RootForms::kLong);
        if (!key) Fail("not the name of a registry key");
        if (deletes && key->path.empty()) Fail("a root cannot be deleted");
        inKey_ = !deletes;
        operations_.push_back(
            {deletes ? RegAction::kDeleteKey : RegAction::kOpenKey, *std::move(key)});
    }

    void ReadValue() {
        // 1. The name.
        RegOperation operation{RegAction::kSetValue, {}};
        RegValue& value = operation.value;
        if (!Skip(TEXT("@"))) value.name = ReadText();
        if (value.name.size() > kMaxValueName) Fail("the name of the value is too long");
        if (!inKey_) Fail("a value without a key");
        SkipBlanks();
        if (!Skip(TEXT("="))) Fail("a value without \"=\"");
        SkipBlanks();
        // 2. The data.
        if (Skip(TEXT("-"))) {
            operation.action = RegAction::kDeleteValue;
        } else if (rest_.starts_with(WCHAR{'"'})) {
            value.type = REG_SZ;
            value.data = TextData(ReadText());
        } else if (Skip(TEXT("dword:"))) {
            SkipBlanks();
            const DWORD number = ReadNumber();
            value.type = REG_DWORD;
            value.data.resize(sizeof number);
            std::memcpy(value.data.data(), &number, sizeof number);
        } else if (Skip(TEXT("hex:"))) {
            value.type = REG_BINARY;
            ReadBytes(value.data);
        } else if (Skip(TEXT("hex("))) {
            value.type = ReadNumber();
            if (!Skip(TEXT("):"))) Fail("hex(type): expected");
            ReadBytes(value.data);
        } else {
            Fail("unknown form of data");
        }
        if (value.data.size() > kMaxData) Fail("the data is too large");
        // 3. Nothing but a comment.
        ReadEnd();
        operations_.push_back(std::move(operation));
    }

    WString ReadText() {
        if (!Skip(TEXT("\""))) Fail("a key or a value expected");
        WString text;
        for (; !rest_.empty(); rest_.remove_prefix(1)) {
            if (Skip(TEXT("\""))) return text;
            if (rest_.front() == '\\') {
                rest_.remove_prefix(1);
                if (rest_.empty()) break;
                if (rest_.front() != '\\' && rest_.front() != '"') Fail("unknown escape in a text");
            }
            text += rest_.front();
        }
        Fail("a text without a closing quote");
    }

    // One to eight hexadecimal digits.
    DWORD ReadNumber() {
        std::string digits;
        for (; !rest_.empty() && IsHexDigit(rest_.front()); rest_.remove_prefix(1)) {
            digits += static_cast<char>(rest_.front());
        }
        if (digits.empty() || digits.size() > 8) Fail("one to eight hexadecimal digits expected");
        return static_cast<DWORD>(std::stoul(digits, nullptr, 16));
    }

    // Bytes with commas between them. A backslash at the end of a line goes on in the next one.
    void ReadBytes(std::vector<BYTE>& data) {
        bool needsComma = false;
        for (;;) {
            SkipBlanks();
            if (Skip(TEXT("\\"))) {
                SkipBlanks();
                if (!rest_.empty()) Fail("a backslash within a line");
                if (!NextLine()) Fail("the file ends within a value");
            } else if (AtEnd()) {
                return;
            } else if (needsComma) {
                if (!Skip(TEXT(","))) Fail("a comma expected between two bytes");
                needsComma = false;
            } else {
                const DWORD byte = ReadNumber();
                if (byte > 0xFF) Fail("a byte has two hexadecimal digits");
                data.push_back(static_cast<BYTE>(byte));
                needsComma = true;
            }
        }
    }

    const WString text_;
    WStringView unread_;    // the lines behind the present one
    WStringView rest_;      // of the present line
    std::size_t line_ = 0;  // its number
    bool isLast_ = false;
    bool inKey_ = false;
    std::vector<RegOperation> operations_;
};

void AppendQuoted(WString& out, WStringView text) {
    out += WCHAR{'"'};
    for (const WCHAR unit : text) {
        if (unit == '"' || unit == '\\') out += WCHAR{'\\'};
        out += unit;
    }
    out += WCHAR{'"'};
}

// The text of data that is one terminated text and nothing else; nothing for other data.
std::optional<WString> TextOf(const std::vector<BYTE>& data) {
    WString text(data.size() / sizeof(WCHAR), WCHAR{0});
    std::copy_n(data.begin(), text.size() * sizeof(WCHAR), reinterpret_cast<BYTE*>(text.data()));
    if (!text.empty()) text.pop_back();
    const bool isText = TextData(text) == data && FitsRegFile(text);
    return isText ? std::optional(text) : std::nullopt;
}

void AppendBytes(WString& line, const std::vector<BYTE>& data) {
    std::size_t width = line.size();
    for (std::size_t i = 0; i < data.size(); ++i) {
        // Room for this byte, its comma and the backslash.
        if (width + 4 > kWidth) {
            ((line += WCHAR{'\\'}) += kLineEnd) += TEXT("  ");
            width = 2;
        }
        line += FormatWide(i + 1 < data.size() ? TEXT("%02x,") : TEXT("%02x"), data[i]);
        width += 3;
    }
}

WString ValueLine(const RegValue& value) {
    WString line;
    if (value.name.empty()) {
        line = TEXT("@");
    } else {
        AppendQuoted(line, value.name);
    }
    line += WCHAR{'='};
    const auto text = value.type == REG_SZ ? TextOf(value.data) : std::nullopt;
    DWORD number = 0;
    if (text) {
        AppendQuoted(line, *text);
    } else if (value.type == REG_DWORD && value.data.size() == sizeof number) {
        std::memcpy(&number, value.data.data(), sizeof number);
        line += FormatWide(TEXT("dword:%08x"), number);
    } else {
        line += value.type == REG_BINARY ? WString(TEXT("hex:"))
                                         : FormatWide(TEXT("hex(%x):"), value.type);
        AppendBytes(line, value.data);
    }
    return line.append(kLineEnd);
}

}  // namespace

std::vector<RegOperation> ParseRegFile(std::string_view bytes) {
    return Reader(TextOfFile(bytes)).ReadFile();
}

WString RegFileStart() {
    return WString(kFirstLine).append(kLineEnd).append(kLineEnd);
}

WString RegKeyText(WStringView fullName, const std::vector<RegValue>& values) {
    WString text(1, WCHAR{'['});
    text.append(fullName).append(TEXT("]")).append(kLineEnd);
    for (const RegValue& value : values) text += ValueLine(value);
    return text.append(kLineEnd);
}

bool FitsRegFile(WStringView name) {
    return std::none_of(name.begin(), name.end(),
                        [](WCHAR unit) { return unit == 0 || unit == '\n' || unit == '\r'; });
}

std::string RegFileBytes(WStringView text) {
    std::string bytes(kUtf16Mark);
    return bytes.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(WCHAR));
}

std::vector<BYTE> TextData(WStringView text) {
    std::vector<BYTE> data((text.size() + 1) * sizeof(WCHAR));
    std::memcpy(data.data(), text.data(), text.size() * sizeof(WCHAR));
    return data;
}
