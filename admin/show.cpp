#include "admin/commands.h"
#include "admin/overview.h"

Report Show(const WString& file, PasswordSource& password) {
    const StoredBackup backup = OpenBackup(file, password);
    const BackupContent content = ListContent(*backup.Root());
    Overview overview(file, backup, content);
    for (const ContentModule& module : content.modules) {
        overview.AddModule(module.name, CountValues(*backup.Root()->FirstChildElement(module.name)),
                           "");
    }
    return overview.Finish(ExitCode::kGood, "", "");
}
