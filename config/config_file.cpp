#include "config/config_file.h"

#include "common/xml_file.h"

ConfigFile::ConfigFile(WStringView path) : path_(path) {}

bool ConfigFile::Load() {
    return LoadXmlFile(path_, document_);
}

bool ConfigFile::Save() const {
    return SaveXmlFile(path_, document_);
}
