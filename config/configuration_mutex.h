// The client's configuration mutex: one component at a time changes or reads the configuration.
#pragma once

#include "common/handles.h"

// Owns the mutex while it lives. The mutex is only ever opened, never created: on a machine where
// no component of the client holds it, nothing is serialised. The wait has no time-out; a second
// owner on the same thread does not wait.
class ConfigurationMutex {
  public:
    ConfigurationMutex();
    ConfigurationMutex(const ConfigurationMutex&) = delete;
    ConfigurationMutex& operator=(const ConfigurationMutex&) = delete;
    ~ConfigurationMutex();

  private:
    UniqueHandle mutex_;
};
