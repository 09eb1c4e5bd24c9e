// XML documents on disk: TinyXML's own parser and printer, with what they lack.
//
// A document is read and laid out as TinyXML does it: white space condensed, whatever it accepts
// accepted, lines that end as text files of the target do. What is added: files are named by their
// wide paths, a depth of nesting that would exhaust the stack is refused, an "&" that starts no
// reference is kept, and a save that fails leaves the old content.
#pragma once

#include <tinyxml.h>

#include "common/text.h"

// Elements may be nested this deep. TinyXML works recursively; a deeper file is refused before it
// can exhaust the stack.
inline constexpr int kMaxXmlDepth = 512;

// Loads the file at `path` into `document`, replacing what it held. False, with `document` empty,
// when the file is no file on a disk, cannot be read or parsed or is nested too deep, and when the
// path has more than 260 bytes in the ANSI code page.
//
// A document that is declared as UTF-8 may hold bytes that are none: they stay as they are, and
// references by number mean the same characters as in any other UTF-8 document.
bool LoadXmlFile(const WString& path, TiXmlDocument& document);

// Saves `document` to `path`, replacing the file's content. False when the file cannot be opened or
// not all of the document could be written - the file then has its old content - and when the path
// has more than 260 bytes in the ANSI code page.
bool SaveXmlFile(const WString& path, const TiXmlDocument& document);
