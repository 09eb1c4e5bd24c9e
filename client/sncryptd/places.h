// The places of the clients that are answered at one time.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "client/sncryptd/requests.h"

inline constexpr std::size_t kPlaces = 64;
// The rest is for administrators, whatever the others do.
inline constexpr std::size_t kPlacesOfOthers = 48;
inline constexpr std::size_t kPlacesOfAccount = 16;

class Places {
  public:
    // Takes a client's place. An administrator waits for one; another account beyond its share, or
    // one for which none is left, gets none: false.
    bool Take(const Client& client);
    void Return(const Client& client);

  private:
    std::mutex mutex_;
    std::condition_variable returned_;
    std::size_t taken_ = 0;
    std::size_t takenByOthers_ = 0;
    std::map<std::vector<BYTE>, std::size_t> takenByAccount_;  // without the administrators
};

// A client in its place, until it goes.
class Visit {
  public:
    // The client has taken its place.
    Visit(Places& places, Client client) : places_(&places), client_(std::move(client)) {}
    Visit(Visit&& other) noexcept
        : places_(std::exchange(other.places_, nullptr)), client_(std::move(other.client_)) {}
    Visit& operator=(Visit&&) = delete;
    ~Visit() {
        if (places_ != nullptr) places_->Return(client_);
    }

  private:
    Places* places_;
    Client client_;
};

inline bool Places::Take(const Client& client) {
    std::unique_lock lock(mutex_);
    if (client.isAdministrator) {
        returned_.wait(lock, [this] { return taken_ < kPlaces; });
        ++taken_;
        return true;
    }
    if (taken_ == kPlaces || takenByOthers_ == kPlacesOfOthers) return false;
    std::size_t& own = takenByAccount_[client.account];
    if (own == kPlacesOfAccount) return false;
    ++own;
    ++takenByOthers_;
    ++taken_;
    return true;
}

inline void Places::Return(const Client& client) {
    const std::lock_guard lock(mutex_);
    --taken_;
    if (!client.isAdministrator) {
        --takenByOthers_;
        const auto own = takenByAccount_.find(client.account);
        if (--own->second == 0) takenByAccount_.erase(own);
    }
    returned_.notify_one();
}
