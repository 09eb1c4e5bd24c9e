#include "tests/support/system_log.h"

SystemLog::SystemLog() = default;
SystemLog::~SystemLog() = default;
std::string SystemLog::Next() const {
    return {};
}
