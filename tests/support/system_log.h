// A log daemon of the test's own, to which this process, and what it starts from now on, writes.
#pragma once

#include <string>

class SystemLog {
  public:
    SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;
    ~SystemLog();

    // False where the system lets the test have none.
    explicit operator bool() const { return socket_ >= 0; }
    // The next record as it was sent; empty when there is none.
    std::string Next() const;

  private:
    int socket_ = -1;
};
