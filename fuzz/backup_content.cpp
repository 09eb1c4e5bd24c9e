// The reader of backups that are checked and compared: whatever a file holds, it is read to an end,
// and equals itself.
#include <tinyxml.h>

#include "admin/backup_content.h"
#include "admin/comparison.h"
#include "common/xml_file.h"
#include "fuzz/machine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto path = InputFile({reinterpret_cast<const char*>(data), size});
    TiXmlDocument document;
    if (!LoadXmlFile(path.generic_string<WCHAR>(), document)) return 0;
    TiXmlElement* const root = document.RootElement();
    if (root == nullptr) return 0;
    ListContent(*root);
    // Without a password nothing protected is tried: each salt would cost a key stretch.
    const BackupContent content = ReadContent(*root, SecureText());
    Promise(Compare(content, content).empty(), "a backup equals itself");
    Promise(CompareWithMachine(content, content, {}).empty(), "a restored machine equals the file");
    return 0;
}
