#include "reg_file.h"

#include <algorithm>
#include <optional>

#include "common/format.h"

namespace {

constexpr WStringView kFirstLine = TEXT("Windows Registry Editor Version 5.00");
constexpr WStringView kLineEnd = TEXT("\r\n");
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::size_t kWidth = 80;               // of a line with hex digits
constexpr std::size_t kLargestData = 64u << 20;  // what the registry takes

bool IsBlank(WCHAR unit) {
    return unit == ' ' || unit == '\t';
}

int DigitOf(WCHAR unit) {
    if (unit >= '0' && unit <= '9') return unit - '0';
    if (unit >= 'a' && unit <= 'f') return unit - 'a' + 10;
    if (unit >= 'A' && unit <= 'F') return unit - 'A' + 10;
    return -1;
}

void AppendUnit(std::vector<BYTE>& data, WCHAR unit) {
    data.push_back(static_cast<BYTE>(unit & 0xFF));
    data.push_back(static_cast<BYTE>(unit >> 8));
}

// --- Lines --------------------------------------------------------------------------------------

void CutLineEnd(WString& line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
}

std::vector<WString> Utf16Lines(std::string_view bytes) {
    if (bytes.size() % 2 != 0) throw RegFileError{1, "half a character at the end of the file"};
    std::vector<WString> lines(1);
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        const auto low = static_cast<unsigned char>(bytes[i]);
        const auto high = static_cast<unsigned char>(bytes[i + 1]);
        const auto unit = static_cast<WCHAR>(low | high << 8);
        if (unit == 0) throw RegFileError{lines.size(), "a null character"};
        if (unit == '\n') {
            CutLineEnd(lines.back());
            lines.emplace_back();
        } else {
            lines.back() += unit;
        }
    }
    CutLineEnd(lines.back());
    return lines;
}

WString Utf8Line(std::string_view bytes, std::size_t number) {
    if (bytes.find('\0') != std::string_view::npos) throw RegFileError{number, "a null character"};
    if (bytes.empty()) return {};
    if (bytes.size() > INT32_MAX) throw RegFileError{number, "the line is too long"};
    const int size = static_cast<int>(bytes.size());
    const int units =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, nullptr, 0);
    if (units <= 0) throw RegFileError{number, "text that is not UTF-8"};
    WString line(static_cast<std::size_t>(units), WCHAR{0});
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, line.data(), units);
    CutLineEnd(line);
    return line;
}

std::vector<WString> Utf8Lines(std::string_view bytes) {
    std::vector<WString> lines;
    for (;;) {
        const std::size_t end = bytes.find('\n');
        lines.push_back(Utf8Line(bytes.substr(0, end), lines.size() + 1));
        if (end == std::string_view::npos) return lines;
        bytes.remove_prefix(end + 1);
    }
}

std::vector<WString> LinesOf(std::string_view bytes) {
    if (bytes.starts_with(kUtf16Mark)) return Utf16Lines(bytes.substr(kUtf16Mark.size()));
    if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
    return Utf8Lines(bytes);
}

// --- Reading ------------------------------------------------------------------------------------

// Reads the lines from the first to the last; fails by throwing RegFileError.
class Reader {
  public:
    explicit Reader(std::vector<WString> lines) : lines_(std::move(lines)), rest_(lines_.front()) {}

    std::vector<RegOperation> ReadFile() {
        ReadFirstLine();
        while (NextLine()) ReadLine();
        return std::move(operations_);
    }

  private:
    [[noreturn]] void Fail(const char* what) const { throw RegFileError{line_ + 1, what}; }

    bool NextLine() {
        if (++line_ >= lines_.size()) return false;
        rest_ = lines_[line_];
        return true;
    }
    void SkipBlanks() {
        while (!rest_.empty() && IsBlank(rest_.front())) rest_.remove_prefix(1);
    }
    bool AtEnd() const { return rest_.empty() || rest_.front() == ';'; }
    bool Skip(WStringView text) {
        if (!EqualWithoutCase(rest_.substr(0, text.size()), text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    void ReadEnd() {
        SkipBlanks();
        if (!AtEnd()) Fail("unexpected text at the end of the line");
    }

    void ReadFirstLine() {
        if (!Skip(kFirstLine)) Fail("not a registry file of version 5.00");
        ReadEnd();
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
        RegOperation value{RegAction::kSetValue, {}};
        if (!Skip(TEXT("@"))) value.name = ReadText();
        if (value.name.size() > kLongestValueName) Fail("the name of the value is too long");
        if (!inKey_) Fail("a value without a key");
        SkipBlanks();
        if (!Skip(TEXT("="))) Fail("a value without \"=\"");
        SkipBlanks();
        // 2. The data.
        if (Skip(TEXT("-"))) {
            value.action = RegAction::kDeleteValue;
        } else if (rest_.starts_with(WCHAR{'"'})) {
            value.type = REG_SZ;
            for (const WCHAR unit : ReadText()) AppendUnit(value.data, unit);
            AppendUnit(value.data, 0);
        } else if (Skip(TEXT("dword:"))) {
            value.type = REG_DWORD;
            ReadDword(value.data);
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
        if (value.data.size() > kLargestData) Fail("the data is too large");
        // 3. Nothing but a comment.
        ReadEnd();
        operations_.push_back(std::move(value));
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
        DWORD number = 0;
        int digits = 0;
        for (; !rest_.empty() && DigitOf(rest_.front()) >= 0; rest_.remove_prefix(1), ++digits) {
            number = number << 4 | static_cast<DWORD>(DigitOf(rest_.front()));
        }
        if (digits < 1 || digits > 8) Fail("one to eight hexadecimal digits expected");
        return number;
    }

    void ReadDword(std::vector<BYTE>& data) {
        SkipBlanks();
        const DWORD number = ReadNumber();
        for (int shift = 0; shift < 32; shift += 8)
            data.push_back(static_cast<BYTE>(number >> shift));
    }

    // Bytes with commas between them. A backslash at the end of a line goes on in the next one.
    void ReadBytes(std::vector<BYTE>& data) {
        bool needsComma = false;
        for (;;) {
            SkipBlanks();
            if (Skip(TEXT("\\"))) {
                SkipBlanks();
                if (!rest_.empty()) Fail("a backslash within a line");
                if (!NextLine()) {
                    --line_;
                    Fail("the file ends within a value");
                }
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

    std::vector<WString> lines_;
    std::size_t line_ = 0;
    WStringView rest_;  // of the line
    bool inKey_ = false;
    std::vector<RegOperation> operations_;
};

// --- Writing ------------------------------------------------------------------------------------

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
    if (data.size() < 2 || data.size() % 2 != 0) return std::nullopt;
    WString text;
    for (std::size_t i = 0; i < data.size(); i += 2) {
        text += static_cast<WCHAR>(data[i] | data[i + 1] << 8);
    }
    if (text.back() != 0) return std::nullopt;
    text.pop_back();
    if (!FitsRegFile(text)) return std::nullopt;
    return text;
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

}  // namespace

std::variant<std::vector<RegOperation>, RegFileError> ParseRegFile(std::string_view bytes) {
    try {
        return Reader(LinesOf(bytes)).ReadFile();
    } catch (const RegFileError& error) {
        return error;
    }
}

WString RegFileStart() {
    return WString(kFirstLine).append(kLineEnd).append(kLineEnd);
}

WString RegKeyLine(WStringView fullName) {
    WString line(1, WCHAR{'['});
    return line.append(fullName).append(TEXT("]")).append(kLineEnd);
}

WString RegValueLine(WStringView name, DWORD type, const std::vector<BYTE>& data) {
    WString line;
    if (name.empty()) {
        line = TEXT("@");
    } else {
        AppendQuoted(line, name);
    }
    line += WCHAR{'='};
    const auto text = type == REG_SZ ? TextOf(data) : std::nullopt;
    if (text) {
        AppendQuoted(line, *text);
    } else if (type == REG_DWORD && data.size() == sizeof(DWORD)) {
        DWORD number = 0;
        for (std::size_t i = sizeof(DWORD); i-- > 0;) number = number << 8 | data[i];
        line += FormatWide(TEXT("dword:%08x"), number);
    } else {
        if (type == REG_BINARY) {
            line += TEXT("hex:");
        } else {
            line += FormatWide(TEXT("hex(%x):"), type);
        }
        AppendBytes(line, data);
    }
    return line.append(kLineEnd);
}

WString RegKeyEnd() {
    return WString(kLineEnd);
}

bool FitsRegFile(WStringView name) {
    return std::none_of(name.begin(), name.end(),
                        [](WCHAR unit) { return unit == 0 || unit == '\n' || unit == '\r'; });
}

std::string RegFileBytes(WStringView text) {
    std::string bytes(kUtf16Mark);
    for (const WCHAR unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}
