#include "config/comments.h"

namespace {

// The node that follows in document order, within `top`.
TiXmlNode* NextInDocument(TiXmlNode* node, const TiXmlNode* top) {
    if (node->FirstChild() != nullptr) return node->FirstChild();
    while (node != top && node->NextSibling() == nullptr) node = node->Parent();
    return node == top ? nullptr : node->NextSibling();
}

}  // namespace

std::vector<TiXmlNode*> SelectComments(TiXmlElement* root) {
    std::vector<TiXmlNode*> comments;
    TiXmlNode* const top =
        root->GetDocument() != nullptr ? static_cast<TiXmlNode*>(root->GetDocument()) : root;
    for (TiXmlNode* node = top; node != nullptr; node = NextInDocument(node, top)) {
        if (node->ToComment() != nullptr) comments.push_back(node);
    }
    return comments;
}

void StripComments(TiXmlElement* root) {
    for (TiXmlNode* comment : SelectComments(root)) {
        if (comment->Parent() != nullptr) comment->Parent()->RemoveChild(comment);
    }
}
