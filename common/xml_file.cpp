#include "common/xml_file.h"

#include <windows.h>
//
#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "common/file.h"
#include "common/path.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\n\v\f";
constexpr std::string_view kUnquotedEnd = " \t\n\v\f/>";  // of an attribute's value
constexpr std::string_view kMarks[] = {kByteOrderMark, "\xEF\xBF\xBE", "\xEF\xBF\xBF"};

// Line ends as TinyXML makes them of a file's: CR LF, and CR alone, are one LF.
void NormaliseLineEnds(std::string& text) {
    std::size_t to = text.find('\r');
    if (to == std::string::npos) return;
    for (std::size_t from = to; from < text.size(); ++from) {
        if (text[from] == '\r') {
            text[to++] = '\n';
            if (from + 1 < text.size() && text[from + 1] == '\n') ++from;
        } else {
            text[to++] = text[from];
        }
    }
    text.resize(to);
}

bool IsUtf8(const std::string& text) {
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                               static_cast<int>(text.size()), nullptr, 0) > 0;
}

bool IsNameStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x7F;
}

// The length of the reference that a text begins with; 0 when it begins with none. `number` is that
// of a reference by number, else 0.
std::size_t ReferenceAt(std::string_view text, std::uint32_t& number) {
    constexpr std::string_view kNamed[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
    constexpr std::uint32_t kLastCharacter = 0x10FFFF;
    number = 0;
    for (const std::string_view name : kNamed) {
        if (text.starts_with(name)) return name.size();
    }
    if (!text.starts_with("&#")) return 0;
    const bool isHexadecimal = text.starts_with("&#x");
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + (isHexadecimal ? 3 : 2), end, number,
                                               isHexadecimal ? 16 : 10);
    if (error != std::errc() || stop == end || *stop != ';' || number > kLastCharacter) return 0;
    return static_cast<std::size_t>(stop - text.data()) + 1;
}

// Walks a document from tag to tag, by the rules by which TinyXML walks it, and copies it in a form
// of which TinyXML loses nothing. Where TinyXML finds an error there are no rules any more: the
// rest is copied as it is, and the error is TinyXML's to find.
class MarkupGuard {
  public:
    explicit MarkupGuard(const std::string& text) : text_(text) { out_.reserve(text.size() + 1); }

    // False when elements are nested too deep.
    bool Run() {
        if (Starts(kByteOrderMark)) UseUtf8();
        while (at_ < text_.size() && depth_ <= kMaxXmlDepth) {
            if (depth_ > 0) {
                CopyText(std::min(text_.find('<', at_), text_.size()));
            } else {
                PassBlanks();
                if (!Starts("<")) break;  // TinyXML reads no further
            }
            PassMarkup();
        }
        return depth_ <= kMaxXmlDepth;
    }
    const std::string& Copy() const { return out_; }
    // How TinyXML is to read the copy.
    TiXmlEncoding Encoding() const { return isMixed_ ? TIXML_ENCODING_LEGACY : kDetected; }

  private:
    static constexpr TiXmlEncoding kDetected = TIXML_DEFAULT_ENCODING;

    bool Starts(std::string_view prefix) const {
        return text_.compare(at_, prefix.size(), prefix) == 0;
    }

    // TinyXML takes each byte that is no UTF-8 for the first of a character, and a quote or a "<"
    // behind it for the rest. Such a text is read byte by byte.
    void UseUtf8() {
        isUtf8_ = true;
        isMixed_ = !IsUtf8(text_);
        if (isMixed_ && Starts(kByteOrderMark)) at_ += kByteOrderMark.size();
    }

    void CopyUpTo(std::size_t end) {
        out_.append(text_, at_, end - at_);
        at_ = end;
    }

    // To behind the next `end`, or to the end of all.
    void PassBehind(std::string_view end) {
        const std::size_t found = text_.find(end, at_);
        CopyUpTo(found == std::string::npos ? text_.size() : found + end.size());
    }

    void PassBlanks() {
        for (;;) {
            CopyUpTo(std::min(text_.find_first_not_of(kBlanks, at_), text_.size()));
            const auto* mark = std::ranges::find_if(
                kMarks, [this](std::string_view bytes) { return Starts(bytes); });
            if (!isUtf8_ || isMixed_ || mark == std::end(kMarks)) return;
            CopyUpTo(at_ + mark->size());
        }
    }

    // Text, or the value of an attribute.
    void CopyText(std::size_t end) {
        for (;;) {
            const std::string_view text = std::string_view(text_).substr(at_, end - at_);
            CopyUpTo(at_ + std::min(text.find('&'), text.size()));
            if (at_ == end) return;
            std::uint32_t number = 0;
            const std::string_view rest = std::string_view(text_).substr(at_, end - at_);
            const std::size_t size = ReferenceAt(rest, number);
            if (size == 0) {
                out_ += "&amp;";
                ++at_;
            } else if (isMixed_ && number >= 0x80) {
                out_ += CharacterOf(rest.substr(0, size));
                at_ += size;
            } else {
                CopyUpTo(at_ + size);
            }
        }
    }

    // The bytes of a reference in UTF-8.
    static std::string CharacterOf(std::string_view reference) {
        TiXmlText text("");
        text.Parse(std::string(reference).append("<").c_str(), nullptr, TIXML_ENCODING_UTF8);
        return text.ValueStr();
    }

    void PassMarkup() {
        if (depth_ > 0 && Starts("</")) {
            --depth_;
            PassBehind(">");
        } else if (IsDeclaration()) {
            PassDeclaration();
        } else if (Starts("<!--")) {
            CopyUpTo(at_ + 4);
            PassBehind("-->");
        } else if (Starts("<![CDATA[")) {
            PassBehind("]]>");
        } else if (at_ + 1 < text_.size() && IsNameStart(text_[at_ + 1])) {
            PassStartTag();
        } else {
            PassBehind(">");
        }
    }

    // In letters of either case.
    bool IsDeclaration() const {
        constexpr std::string_view kStart = "<?xml";
        return std::ranges::equal(std::string_view(text_).substr(at_, kStart.size()), kStart,
                                  [](char one, char other) { return (one | 0x20) == other; });
    }

    void PassDeclaration() {
        TiXmlDeclaration declaration;
        const char* const end =
            declaration.Parse(text_.c_str() + at_, nullptr, TIXML_ENCODING_UNKNOWN);
        if (end == nullptr) return CopyUpTo(text_.size());
        CopyUpTo(static_cast<std::size_t>(end - text_.c_str()));
        if (depth_ == 0 && !std::exchange(isDeclared_, true) && NamesUtf8(declaration.Encoding())) {
            UseUtf8();
        }
    }

    static bool NamesUtf8(const char* encoding) {
        const WString name = Utf8ToWide(encoding);
        return name.empty() || EqualIgnoringCase(name.substr(0, 5), TEXT("UTF-8")) ||
               EqualIgnoringCase(name.substr(0, 4), TEXT("UTF8"));
    }

    void PassStartTag() {
        CopyUpTo(at_ + 1);
        PassName();
        for (;;) {
            PassBlanks();
            if (Starts(">") || Starts("/>")) break;
            if (!PassAttribute()) return CopyUpTo(text_.size());
        }
        if (Starts(">")) ++depth_;
        PassBehind(">");
    }

    bool PassAttribute() {
        if (at_ == text_.size() || !IsNameStart(text_[at_])) return false;
        PassName();
        PassBlanks();
        if (!Starts("=")) return false;
        CopyUpTo(at_ + 1);
        PassBlanks();
        if (!Starts("\"") && !Starts("'")) {
            CopyUpTo(std::min(text_.find_first_of(kUnquotedEnd, at_), text_.size()));
            return true;
        }
        const std::size_t end = text_.find(text_[at_], at_ + 1);
        if (end == std::string::npos) return false;
        CopyText(end + 1);
        return true;
    }

    void PassName() {
        constexpr std::string_view kOthers = "0123456789-.:";
        std::size_t end = at_;
        while (end < text_.size() &&
               (IsNameStart(text_[end]) || kOthers.find(text_[end]) != std::string_view::npos)) {
            ++end;
        }
        CopyUpTo(end);
    }

    const std::string& text_;
    std::size_t at_ = 0;
    int depth_ = 0;
    bool isDeclared_ = false;  // by the first declaration, which alone counts
    bool isUtf8_ = false;
    bool isMixed_ = false;  // UTF-8 beside bytes that are none
    std::string out_;
};

struct StreamCloser {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using UniqueStream = std::unique_ptr<std::FILE, StreamCloser>;

// A text stream that writes to the file, which stays open behind it.
UniqueStream StreamTo(HANDLE file) {
    UniqueHandle own;
    if (!DuplicateHandle(GetCurrentProcess(), file, GetCurrentProcess(), own.put(), 0, FALSE,
                         DUPLICATE_SAME_ACCESS)) {
        return {};
    }
    const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(own.get()), _O_TEXT);
    if (descriptor < 0) return {};
    own.release();
    UniqueStream stream(_fdopen(descriptor, "w"));
    if (stream) {
        constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
        std::setvbuf(stream.get(), nullptr, _IOFBF, kBufferSize);
    } else {
        _close(descriptor);
    }
    return stream;
}

// From the file's position to its new end.
bool Print(const TiXmlDocument& document, HANDLE file) {
    UniqueStream stream = StreamTo(file);
    if (!stream) return false;
    const bool printed = document.SaveFile(stream.get());
    return std::fclose(stream.release()) == 0 && printed && SetEndOfFile(file);
}

}  // namespace

bool LoadXmlFile(const WString& path, TiXmlDocument& document) {
    document.Clear();
    document.ClearError();
    if (!FitsAnsiPath(path)) return false;
    const UniqueHandle file = OpenDiskFile(path, GENERIC_READ, OPEN_EXISTING);
    std::string content;
    if (!file || !ReadAll(file.get(), content)) return false;
    NormaliseLineEnds(content);
    content.resize(std::min(content.find('\0'), content.size()));

    MarkupGuard guard(content);
    if (!guard.Run()) return false;
    document.SetTabSize(0);  // nobody asks for the row and column of a node
    document.Parse(guard.Copy().c_str(), nullptr, guard.Encoding());
    if (!document.Error()) return true;
    document.Clear();
    return false;
}

bool SaveXmlFile(const WString& path, const TiXmlDocument& document) {
    if (!FitsAnsiPath(path)) return false;
    const UniqueHandle file = OpenDiskFile(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
    std::string previous;
    if (!file || !ReadAll(file.get(), previous) || !GoToStart(file.get())) return false;
    if (Print(document, file.get())) return true;
    // The room that the file had is still its own: it gets its old content back.
    Rewrite(file.get(), previous.data(), previous.size());
    return false;
}
