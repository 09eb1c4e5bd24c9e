// XML documents on disk, loaded and saved so that nothing in them is lost.
//
// TinyXML's own file functions drop text made only of white space, add line ends and indentation to
// text that stands beside elements, lose an "&" that starts no reference, take a text such as
// "&#x41;" for a character reference when they save it, and do not see a full disk. These two do
// the same job without these losses; for documents that hold none of this, the saved layout is
// TinyXML's: one element a line, four spaces a level.
#pragma once

#include <tinyxml.h>

#include <string>

// Elements may be nested this deep. TinyXML works recursively; a deeper file is refused before it
// can exhaust the stack.
inline constexpr int kMaxXmlDepth = 512;
// An element may have this many attributes. TinyXML compares each with all before it; an element
// with a hundred thousand of them would hold the program up for minutes.
inline constexpr int kMaxXmlAttributes = 1000;

// Loads the file at `path` (ANSI code page) into `document`, replacing what it held. Line ends in
// text become "\n", as XML prescribes; other white space in text stays as it is, and blanks that
// are an element's whole content, or are written as references, are held as a CDATA section. An "&"
// that starts no reference stands for itself. False, with `document` empty, when the file cannot be
// read or parsed, is nested too deep, has an element with too many attributes, a zero byte before
// its end or a document type; also for markup that TinyXML would read in a way of its own.
bool LoadXmlFile(const std::string& path, TiXmlDocument& document);

// Saves `document` to `path`, replacing the file's content, without a byte order mark and with
// lines that end with "\n" on every target. False when it cannot be opened or not all of it could
// be written; the file then has its old content.
bool SaveXmlFile(const std::string& path, const TiXmlDocument& document);
