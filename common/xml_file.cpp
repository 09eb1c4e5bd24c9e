#include "common/xml_file.h"

#include <windows.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>
#include <utility>

#include "common/text.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kCdataStart = "<![CDATA[";
constexpr std::string_view kCdataEnd = "]]>";
constexpr std::string_view kLayout = " \t\n";

// What the parser passes over as white space where a text may begin.
struct ParserBlank {
    char32_t character;
    std::string_view bytes;
};
constexpr ParserBlank kParserBlanks[] = {
    {'\t', "\t"},
    {'\n', "\n"},
    {'\v', "\v"},
    {'\f', "\f"},
    {'\r', "\r"},
    {' ', " "},
    {0xFEFF, "\xEF\xBB\xBF"},
    {0xFFFE, "\xEF\xBF\xBE"},
    {0xFFFF, "\xEF\xBF\xBF"},
};

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

bool ReadWholeFile(const std::string& path, std::string& content) {
    const UniqueFile file(std::fopen(path.c_str(), "rb"));
    if (!file) return false;
    char block[1 << 16];
    while (const std::size_t size = std::fread(block, 1, sizeof block, file.get())) {
        content.append(block, size);
    }
    return std::ferror(file.get()) == 0;
}

// Line ends by XML's rule: CR LF, and CR alone, are one LF.
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

bool IsNameStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsNameOnly(char c) {
    return (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':';
}

// What an "&" can start, and the character it stands for. A reference by number to a character that
// the document's encoding lacks is none.
std::size_t ReferenceAt(std::string_view text, char32_t lastCharacter, char32_t& character) {
    constexpr std::pair<std::string_view, char32_t> kNamed[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    for (const auto& [name, meaning] : kNamed) {
        if (!text.starts_with(name)) continue;
        character = meaning;
        return name.size();
    }
    if (!text.starts_with("&#")) return 0;
    const bool isHexadecimal = text.starts_with("&#x");
    const char* const end = text.data() + text.size();
    std::uint32_t number = 0;
    const auto [stop, error] = std::from_chars(text.data() + (isHexadecimal ? 3 : 2), end, number,
                                               isHexadecimal ? 16 : 10);
    if (error != std::errc() || stop == end || *stop != ';') return 0;
    const bool isSurrogate = number >= 0xD800 && number <= 0xDFFF;
    if (number == 0 || number > lastCharacter || isSurrogate) return 0;
    character = number;
    return static_cast<std::size_t>(stop - text.data()) + 1;
}

// Walks a document from tag to tag and copies it in a form in which the parser loses nothing of it:
// blank texts become CDATA sections, and an "&" that starts no reference becomes one. What is no
// XML is refused where the parser would read it in a way of its own; whether the tags match and
// attributes are unique is left to the parser.
class MarkupScanner {
  public:
    MarkupScanner(std::string_view text, TiXmlEncoding encoding)
        : text_(text), lastCharacter_(encoding == TIXML_ENCODING_UTF8 ? 0x10FFFF : 0xFF) {
        out_.reserve(text.size());
    }

    // False when the markup is no XML, nested too deep or has an element with too many attributes.
    bool Run(std::string& result) {
        while (at_ < text_.size()) {
            if (!(StartsWith("<") ? PassMarkup() : PassText())) return false;
        }
        result.swap(out_);
        return true;
    }

  private:
    bool StartsWith(std::string_view prefix) const {
        return text_.compare(at_, prefix.size(), prefix) == 0;
    }

    void CopyUpTo(std::size_t end) {
        out_.append(text_, at_, end - at_);
        at_ = end;
    }

    bool Pass(std::string_view literal) {
        if (!StartsWith(literal)) return false;
        CopyUpTo(at_ + literal.size());
        return true;
    }

    // From `start`, which stands here, to behind the first `end`.
    bool PassSection(std::string_view start, std::string_view end) {
        const std::size_t at = text_.find(end, at_ + start.size());
        if (at == std::string_view::npos) return false;
        CopyUpTo(at + end.size());
        return true;
    }

    // The parser takes a text outside the root for the end of the document. Behind the root it is.
    bool PassText() {
        const std::size_t end = std::min(text_.find('<', at_), text_.size());
        const std::string_view text = text_.substr(at_, end - at_);
        const bool isLayout = text.find_first_not_of(kLayout) == std::string_view::npos;
        if (depth_ == 0 && !isLayout) {
            at_ = text_.size();
            return hasRoot_;
        }
        // Blanks that are an element's whole content are no layout, unless they hold a line end.
        const bool isContent = isBehindStartTag_ && text_.compare(end, 2, "</") == 0 &&
                               text.find('\n') == std::string_view::npos;
        std::string blanks;
        if ((!isLayout || isContent) && IsBlankToParser(text, blanks)) {
            out_.append(kCdataStart).append(blanks).append(kCdataEnd);
            at_ = end;
        } else {
            CopyText(end);
        }
        return true;
    }

    // Whether the parser would drop the text; `blanks` is then the text with its references
    // resolved.
    bool IsBlankToParser(std::string_view text, std::string& blanks) const {
        while (!text.empty()) {
            char32_t character = 0;
            const std::size_t reference = ReferenceAt(text, lastCharacter_, character);
            const auto* const blank =
                std::ranges::find_if(kParserBlanks, [&](const ParserBlank& candidate) {
                    return reference != 0 ? character == candidate.character
                                          : text.starts_with(candidate.bytes);
                });
            if (blank == std::end(kParserBlanks)) return false;
            blanks += blank->bytes;
            text.remove_prefix(reference != 0 ? reference : blank->bytes.size());
        }
        return true;
    }

    // The same for text and the values of attributes.
    void CopyText(std::size_t end) {
        while (at_ < end) {
            const std::size_t ampersand = text_.substr(at_, end - at_).find('&');
            if (ampersand == std::string_view::npos) return CopyUpTo(end);
            CopyUpTo(at_ + ampersand);
            char32_t character = 0;
            const std::size_t size =
                ReferenceAt(text_.substr(at_, end - at_), lastCharacter_, character);
            if (size != 0) {
                CopyUpTo(at_ + size);
            } else {
                out_ += "&amp;";
                ++at_;
            }
        }
    }

    bool PassMarkup() {
        isBehindStartTag_ = false;
        if (StartsWith(kCommentStart)) return PassSection(kCommentStart, kCommentEnd);
        if (StartsWith(kCdataStart)) return depth_ > 0 && PassSection(kCdataStart, kCdataEnd);
        if (StartsWith("<?")) return PassInstruction();
        if (StartsWith("</")) return --depth_ >= 0 && PassSection("</", ">");
        // A document type is refused with the rest: the parser does not know where one ends.
        return PassStartTag();
    }

    // The parser ends an instruction at its first ">", and takes all that begin like a declaration
    // for one.
    bool PassInstruction() {
        const std::size_t end = text_.find("?>", at_ + 2);
        if (end == std::string_view::npos) return false;
        const std::string_view inside = text_.substr(at_ + 2, end - at_ - 2);
        if (inside.find_first_of("<>") != std::string_view::npos) return false;
        const bool isDeclaration = inside.size() >= 3 && (inside[0] | 0x20) == 'x' &&
                                   (inside[1] | 0x20) == 'm' && (inside[2] | 0x20) == 'l';
        if (!isDeclaration) return PassSection("<?", "?>");
        return at_ == 0 && Pass("<?xml") && PassAttributes("\"& \t\n") && Pass("?>");
    }

    bool PassStartTag() {
        Pass("<");
        if (!StartsName() || !PassName() || !PassAttributes("")) return false;
        hasRoot_ = true;
        if (Pass("/>")) return true;
        isBehindStartTag_ = true;
        return Pass(">") && ++depth_ <= kMaxXmlDepth;
    }

    // Attributes and the blanks around them. A value may hold none of the `forbidden` characters.
    bool PassAttributes(std::string_view forbidden) {
        for (int count = 0;; ++count) {
            const bool isApart = PassBlanks();
            if (!StartsName()) return true;
            if (!isApart || count == kMaxXmlAttributes || !PassName()) return false;
            PassBlanks();
            if (!Pass("=")) return false;
            PassBlanks();
            if (!PassQuoted(forbidden)) return false;
        }
    }

    bool PassQuoted(std::string_view forbidden) {
        if (!StartsWith("\"") && !StartsWith("'")) return false;
        const std::size_t end = text_.find(text_[at_], at_ + 1);
        if (end == std::string_view::npos) return false;
        const std::string_view value = text_.substr(at_ + 1, end - at_ - 1);
        if (value.find_first_of(forbidden) != std::string_view::npos) return false;
        CopyText(end + 1);
        return true;
    }

    // False when there are none.
    bool PassBlanks() {
        const std::size_t start = at_;
        CopyUpTo(std::min(text_.find_first_not_of(kLayout, at_), text_.size()));
        return at_ != start;
    }

    bool StartsName() const { return at_ < text_.size() && IsNameStart(text_[at_]); }

    // False for a name that the parser would take for blanks in part.
    bool PassName() {
        const std::size_t start = at_;
        while (at_ < text_.size() && (IsNameStart(text_[at_]) || IsNameOnly(text_[at_]))) ++at_;
        const std::string_view name = text_.substr(start, at_ - start);
        out_ += name;
        return std::ranges::none_of(kParserBlanks, [&](const ParserBlank& blank) {
            return name.find(blank.bytes) != std::string_view::npos;
        });
    }

    std::string_view text_;
    char32_t lastCharacter_;
    std::size_t at_ = 0;
    bool isBehindStartTag_ = false;
    bool hasRoot_ = false;  // at least its start tag
    int depth_ = 0;
    std::string out_;
};

// Writes a document into a string, in TinyXML's layout except where that would change a text.
class Writer {
  public:
    std::string Write(const TiXmlDocument& document) {
        for (const auto* node = document.FirstChild(); node != nullptr;
             node = node->NextSibling()) {
            WriteNode(*node, 0, false);
            out_ += '\n';
        }
        return std::move(out_);
    }

  private:
    void WriteNode(const TiXmlNode& node, int depth, bool insideText) {
        if (const auto* element = node.ToElement()) {
            WriteElement(*element, depth, insideText);
        } else if (const auto* text = node.ToText()) {
            WriteText(*text);
        } else if (node.ToComment() != nullptr) {
            out_.append("<!--").append(node.ValueStr()).append("-->");
        } else if (const auto* declaration = node.ToDeclaration()) {
            declaration->Print(nullptr, 0, &out_);
        } else if (node.ToUnknown() != nullptr) {
            out_.append("<").append(node.ValueStr()).append(">");
        }
    }

    void WriteElement(const TiXmlElement& element, int depth, bool insideText) {
        out_.append("<").append(element.ValueStr());
        for (const auto* attribute = element.FirstAttribute(); attribute != nullptr;
             attribute = attribute->Next()) {
            const std::string& value = attribute->ValueStr();
            const char quote = value.find('"') == std::string::npos ? '"' : '\'';
            out_.append(" ").append(attribute->NameTStr()).append("=") += quote;
            WriteEncoded(value);
            out_ += quote;
        }
        if (element.NoChildren()) {
            out_ += " />";
            return;
        }
        out_ += '>';
        // White space beside a text would become part of it: such content stays on its line.
        const bool holdsText = insideText || HoldsText(element);
        for (const auto* node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
            if (!holdsText) StartLine(depth + 1);
            WriteNode(*node, depth + 1, holdsText);
        }
        if (!holdsText) StartLine(depth);
        out_.append("</").append(element.ValueStr()).append(">");
    }

    void WriteText(const TiXmlText& text) {
        // A CR would be read as a line end.
        if (text.CDATA() && text.ValueStr().find('\r') == std::string::npos) {
            out_.append(kCdataStart).append(text.ValueStr()).append(kCdataEnd);
        } else {
            WriteEncoded(text.ValueStr());
        }
    }

    void WriteEncoded(const std::string& text) {
        for (const char c : text) {
            switch (c) {
                case '&':
                    out_ += "&amp;";
                    break;
                case '<':
                    out_ += "&lt;";
                    break;
                case '>':
                    out_ += "&gt;";
                    break;
                case '"':
                    out_ += "&quot;";
                    break;
                case '\'':
                    out_ += "&apos;";
                    break;
                default:
                    if (static_cast<unsigned char>(c) < 0x20) {
                        char reference[8];
                        std::snprintf(reference, sizeof reference, "&#x%02X;",
                                      static_cast<unsigned>(c));
                        out_ += reference;
                    } else {
                        out_ += c;
                    }
            }
        }
    }

    void StartLine(int depth) {
        out_ += '\n';
        out_.append(static_cast<std::size_t>(depth) * 4, ' ');
    }

    static bool HoldsText(const TiXmlElement& element) {
        for (const auto* node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
            if (node->ToText() != nullptr) return true;
        }
        return false;
    }

    std::string out_;
};

// Puts the bytes into the file without giving up the room that it has on the disk.
bool Overwrite(const std::string& path, const std::string& bytes) {
    UniqueFile file(std::fopen(path.c_str(), "r+b"));
    if (!file) file.reset(std::fopen(path.c_str(), "wb"));
    if (!file) return false;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    if (std::fclose(file.release()) != 0 || !written) return false;
    std::error_code error;
    if (std::filesystem::is_regular_file(path, error)) {
        std::filesystem::resize_file(path, bytes.size(), error);
    }
    return !error;
}

bool IsUtf8(const std::string& text) {
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                               static_cast<int>(text.size()), nullptr, 0) > 0;
}

// The encoding that the document's declaration names; UTF-8 when there is none.
std::string DeclaredEncoding(const std::string& content) {
    if (!content.starts_with("<?xml")) return {};
    TiXmlDocument start;
    start.Parse(content.substr(0, content.find('>') + 1).c_str());
    const auto* node = start.FirstChild();
    const auto* declaration = node != nullptr ? node->ToDeclaration() : nullptr;
    return declaration != nullptr ? declaration->Encoding() : "";
}

// How the parser is to read the bytes: as their declaration says. Bytes that are no UTF-8 whatever
// the declaration says are taken one by one.
TiXmlEncoding EncodingOf(const std::string& content) {
    const WString declared = Utf8ToWide(DeclaredEncoding(content));
    const bool isUtf8 = declared.empty() || EqualIgnoringCase(declared, TEXT("UTF-8")) ||
                        EqualIgnoringCase(declared, TEXT("UTF8"));
    return isUtf8 && IsUtf8(content) ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
}

}  // namespace

bool LoadXmlFile(const std::string& path, TiXmlDocument& document) {
    TiXmlBase::SetCondenseWhiteSpace(false);
    document.Clear();
    document.ClearError();
    std::string content;
    if (!ReadWholeFile(path, content)) return false;
    content.erase(content.find_last_not_of('\0') + 1);
    if (content.empty() || content.find('\0') != std::string::npos) return false;
    if (content.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
        content.erase(0, kByteOrderMark.size());
    }
    NormaliseLineEnds(content);
    std::string markup;
    const TiXmlEncoding encoding = EncodingOf(content);
    if (!MarkupScanner(content, encoding).Run(markup)) return false;
    document.Parse(markup.c_str(), nullptr, encoding);
    if (!document.Error()) return true;
    document.Clear();
    return false;
}

bool SaveXmlFile(const std::string& path, const TiXmlDocument& document) {
    std::error_code ignored;
    std::string previous;
    const bool isThere =
        std::filesystem::is_regular_file(path, ignored) && ReadWholeFile(path, previous);
    if (Overwrite(path, Writer().Write(document))) return true;
    // The room that the file had is still its own: it gets its old content back.
    if (isThere) Overwrite(path, previous);
    return false;
}
