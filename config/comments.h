// Comments of a configuration document.
#pragma once

#include <tinyxml.h>

#include <vector>

// The comment nodes of the document that `root` belongs to, in document order: what the XPath
// expression "//comment()" selects, comments before and behind the root element included.
std::vector<TiXmlNode*> SelectComments(TiXmlElement* root);

// Removes every selected comment from its parent.
void StripComments(TiXmlElement* root);
