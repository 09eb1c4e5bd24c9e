#include "common/xml_file.h"

#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kCdataStart = "<![CDATA[";
constexpr std::string_view kCdataEnd = "]]>";

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

// Walks the markup of a document from tag to tag, keeping count of the nesting, and copies it with
// every blank-only text of an element turned into a CDATA section. It does not judge whether the
// document is well formed: the parser does.
class MarkupScanner {
  public:
    explicit MarkupScanner(std::string_view text) : text_(text) { out_.reserve(text.size()); }

    // False when the nesting is too deep or the markup is no XML.
    bool Run(std::string& result) {
        while (at_ < text_.size()) {
            const std::size_t tag = text_.find('<', at_);
            CopyUpTo(tag);
            if (tag == std::string_view::npos) break;
            if (!PassTag()) return false;
        }
        result.swap(out_);
        return true;
    }

  private:
    bool StartsWith(std::string_view prefix) const {
        return text_.compare(at_, prefix.size(), prefix) == 0;
    }

    void CopyUpTo(std::size_t end) {
        end = end > text_.size() ? text_.size() : end;
        out_.append(text_, at_, end - at_);
        at_ = end;
    }

    void PassThrough(std::string_view terminator) {
        const std::size_t end = text_.find(terminator, at_);
        CopyUpTo(end == std::string_view::npos ? end : end + terminator.size());
    }

    // False for markup that is no XML: what the parser would read in a way of its own.
    bool PassTag() {
        if (StartsWith("<!--")) {
            PassThrough("-->");
        } else if (StartsWith(kCdataStart)) {
            PassThrough(kCdataEnd);
        } else if (StartsWith("<?")) {
            PassThrough(">");
            return out_.ends_with("?>");
        } else if (StartsWith("<!")) {
            PassThrough(">");
        } else if (StartsWith("</")) {
            PassThrough(">");
            return --depth_ >= 0;
        } else {
            return StartsName(at_ + 1) && PassStartTag();
        }
        return true;
    }

    bool StartsName(std::size_t at) const {
        const auto c = static_cast<unsigned char>(at < text_.size() ? text_[at] : '\0');
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c >= 0x80;
    }

    bool PassStartTag() {
        std::size_t end = at_ + 1;
        for (char quote = '\0'; end < text_.size(); ++end) {
            const char c = text_[end];
            if (quote != '\0') {
                if (c == quote) quote = '\0';
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '>') {
                break;
            }
        }
        const bool isEmpty = end < text_.size() && text_[end - 1] == '/';
        CopyUpTo(end + 1);
        if (isEmpty) return true;
        WrapBlankText();
        return ++depth_ <= kMaxXmlDepth;
    }

    // Behind a start tag: a text of nothing but blanks up to the end tag. With a line end it is
    // taken for layout.
    void WrapBlankText() {
        const std::size_t end = text_.find_first_not_of(" \t", at_);
        if (end == std::string_view::npos || end == at_ || text_.compare(end, 2, "</") != 0) return;
        out_ += kCdataStart;
        CopyUpTo(end);
        out_ += kCdataEnd;
    }

    std::string_view text_;
    std::size_t at_ = 0;
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
            out_.append(" ").append(attribute->NameTStr()).append("=\"");
            WriteEncoded(attribute->ValueStr());
            out_ += '"';
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
        if (text.CDATA()) {
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

// How the parser is to read the bytes: as their declaration says or, without one, as UTF-8. Bytes
// that are no UTF-8 whatever the declaration says are taken one by one.
TiXmlEncoding EncodingOf(const std::string& content) {
    if (!IsUtf8(content)) return TIXML_ENCODING_LEGACY;
    const bool isDeclared = content.compare(0, 5, "<?xml") == 0;
    return isDeclared ? TIXML_ENCODING_UNKNOWN : TIXML_ENCODING_UTF8;
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
    if (!MarkupScanner(content).Run(markup)) return false;
    document.Parse(markup.c_str(), nullptr, EncodingOf(content));
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
