// How many connections the crypto service serves at one time.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "client/sncryptd/requests.h"

inline constexpr std::size_t kMaxConnections = 64;
// The rest is for administrators, whatever the others do.
inline constexpr std::size_t kMaxConnectionsOfOthers = 48;
inline constexpr std::size_t kMaxConnectionsPerAccount = 16;

class ConnectionLimit {
  public:
    // Admits a client. An administrator waits until the number allows it; another account beyond a
    // limit is refused: false.
    bool Acquire(const Client& client);
    void Release(const Client& client);

  private:
    std::mutex mutex_;
    std::condition_variable released_;
    std::size_t count_ = 0;
    std::size_t countOfOthers_ = 0;
    std::map<std::vector<BYTE>, std::size_t> countByAccount_;  // without the administrators
};

// Owner of what an admitted client counts; releases it.
class ConnectionSlot {
  public:
    // The client has been admitted.
    ConnectionSlot(ConnectionLimit& limit, Client client)
        : limit_(&limit), client_(std::move(client)) {}
    ConnectionSlot(ConnectionSlot&& other) noexcept
        : limit_(std::exchange(other.limit_, nullptr)), client_(std::move(other.client_)) {}
    ConnectionSlot& operator=(ConnectionSlot&&) = delete;
    ~ConnectionSlot() {
        if (limit_ != nullptr) limit_->Release(client_);
    }

  private:
    ConnectionLimit* limit_;
    Client client_;
};

inline bool ConnectionLimit::Acquire(const Client& client) {
    std::unique_lock lock(mutex_);
    if (client.isAdministrator) {
        released_.wait(lock, [this] { return count_ < kMaxConnections; });
        ++count_;
        return true;
    }
    if (count_ == kMaxConnections || countOfOthers_ == kMaxConnectionsOfOthers) return false;
    std::size_t& own = countByAccount_[client.account];
    if (own == kMaxConnectionsPerAccount) return false;
    ++own;
    ++countOfOthers_;
    ++count_;
    return true;
}

inline void ConnectionLimit::Release(const Client& client) {
    const std::lock_guard lock(mutex_);
    --count_;
    if (!client.isAdministrator) {
        --countOfOthers_;
        const auto own = countByAccount_.find(client.account);
        if (--own->second == 0) countByAccount_.erase(own);
    }
    released_.notify_one();
}
