#include "config/config_file.h"

#include "common/xml_file.h"

bool IsPlain(std::string_view content) {
    return content.starts_with(kDeclarationStart) || content.starts_with(kRootStartTag);
}

ConfigFile::ConfigFile(WStringView path) : path_(path) {}

bool ConfigFile::Load() {
    if (!isLoaded_) isLoaded_ = LoadXmlFile(path_, document_);
    return isLoaded_;
}

void ConfigFile::Unload() {
    document_.Clear();
    isLoaded_ = false;
}

bool ConfigFile::Save() const {
    return SaveXmlFile(path_, document_);
}
