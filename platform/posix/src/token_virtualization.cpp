// A process that differs from the machine's setting has the file run/virtualization-<process>-<time
// of its start>, which holds its setting and is removed when the process ends.
#include "token_virtualization.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "descriptor.h"
#include "endpoint.h"
#include "last_error.h"
#include "process_info.h"
#include "thread_identity.h"

namespace platform {
namespace {

bool MachineSetting() {
    return access((EndpointFolder() + "/virtualization").c_str(), F_OK) == 0;
}

std::string NameOfSetting(pid_t process) {
    return "/virtualization-" + std::to_string(process) + "-" +
           std::to_string(ProcessFolder(process).Times().start);
}

// Takes away the setting of this process when it ends.
struct OwnSetting {
    std::string path;

    ~OwnSetting() {
        if (!path.empty()) unlink(path.c_str());
    }
} ownSetting;

}  // namespace

bool IsVirtualizationOn(pid_t process) {
    const std::string path = EndpointFolder() + "/run" + NameOfSetting(process);
    const UniqueDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    char setting = 0;
    const bool isRead = file && read(file.get(), &setting, 1) == 1;
    return isRead ? setting == '1' : MachineSetting();
}

bool SetVirtualization(bool on) {
    const ActAsProcess asProcess;
    const std::string folder = EndpointSubfolder("run", FolderUse::kEveryoneWrites);
    if (folder.empty()) return false;
    ownSetting.path = folder + NameOfSetting(getpid());
    const char* const path = ownSetting.path.c_str();
    if (unlink(path) != 0 && errno != ENOENT) return FailWithErrno(errno);
    if (on == MachineSetting()) return true;
    const UniqueDescriptor file(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    const char setting = on ? '1' : '0';
    return (file && write(file.get(), &setting, 1) == 1 && fchmod(file.get(), 0644) == 0) ||
           FailWithErrno(errno);
}

}  // namespace platform
