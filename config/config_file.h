// The in-memory document of one configuration file.
#pragma once

#include <configuration_format.h>
#include <tinyxml.h>

#include <string>
#include <string_view>

#include "common/text.h"

// How a plain file can begin and where it ends.
inline constexpr std::string_view kDeclarationStart = "<?xml version=";
inline constexpr std::string_view kRootStartTag = "<" SENTREL_ROOT_ELEMENT ">";
inline constexpr std::string_view kRootEndTag = "</" SENTREL_ROOT_ELEMENT ">";

// True for the content of a plain file, whole or its beginning.
bool IsPlain(std::string_view content);

// A document loaded from a path, changed and saved back.
class ConfigFile {
  public:
    explicit ConfigFile(WStringView path);

    const WString& Path() const { return path_; }

    // Loads the document unless it is loaded. False when the file cannot be opened or parsed.
    bool Load();
    // Frees the document. To be called when others may have changed the file.
    void Unload();
    // False when not all of the document could be written.
    bool Save() const;
    // True when the document itself is in error.
    bool HasError() const { return document_.Error(); }

    TiXmlDocument& Document() { return document_; }
    // Null when there is none.
    TiXmlElement* Root() { return document_.RootElement(); }

  private:
    WString path_;
    TiXmlDocument document_;
    bool isLoaded_ = false;
};
