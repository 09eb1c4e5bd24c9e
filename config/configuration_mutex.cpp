#include "config/configuration_mutex.h"

namespace {

constexpr const WCHAR* kMutexName = TEXT("Global\\SN_{2C264CC9-7890-4A5D-A626-F868BBFD200F}");

// A mutex that does not grant everything is opened for waiting alone.
UniqueHandle OpenConfigurationMutex() {
    UniqueHandle mutex(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, kMutexName));
    if (!mutex && GetLastError() == ERROR_ACCESS_DENIED) {
        mutex.reset(OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kMutexName));
    }
    return mutex;
}

}  // namespace

ConfigurationMutex::ConfigurationMutex() : mutex_(OpenConfigurationMutex()) {
    if (mutex_) WaitForSingleObject(mutex_.get(), INFINITE);
}

ConfigurationMutex::~ConfigurationMutex() {
    if (mutex_) ReleaseMutex(mutex_.get());
}
