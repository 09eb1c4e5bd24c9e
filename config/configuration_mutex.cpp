#include "config/configuration_mutex.h"

namespace {

constexpr const WCHAR* kMutexName = TEXT("Global\\SN_{2C264CC9-7890-4A5D-A626-F868BBFD200F}");

}  // namespace

ConfigurationMutex::ConfigurationMutex() : mutex_(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, kMutexName)) {
    if (mutex_) WaitForSingleObject(mutex_.get(), INFINITE);
}

ConfigurationMutex::~ConfigurationMutex() {
    if (mutex_) ReleaseMutex(mutex_.get());
}
