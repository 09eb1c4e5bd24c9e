#include "message_socket.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "last_error.h"

namespace platform {
namespace {

// Stands before every message, so that an empty message differs from the end of the connection.
constexpr BYTE kMark = 'm';

DWORD SendError(int error) {
    if (error == EAGAIN) return ERROR_IO_PENDING;
    if (error == EPIPE || error == ECONNRESET) return ERROR_NO_DATA;
    if (error == EMSGSIZE || error == ENOBUFS) return ERROR_NO_SYSTEM_RESOURCES;
    return ErrorOfErrno(error);
}

}  // namespace

bool MessageSocket::ReadPeer(pid_t& process, Identity& account) const {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return FailWithErrno(errno);
    }
    std::vector<gid_t> groups;
    size = 0;
    // The first call tells how many there are, the second brings them.
    for (int i = 0; i < 2; ++i) {
        groups.resize(size / sizeof(gid_t));
        if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0 &&
            errno != ERANGE) {
            return FailWithErrno(errno);
        }
    }
    std::sort(groups.begin(), groups.end());
    process = peer.pid;
    account = {peer.uid, peer.gid, std::move(groups)};
    return true;
}

DWORD MessageSocket::TrySend(const void* message, DWORD size) {
    BYTE mark = kMark;
    iovec parts[] = {{&mark, 1}, {const_cast<void*>(message), size}};
    msghdr packet{};
    packet.msg_iov = parts;
    packet.msg_iovlen = 2;
    while (sendmsg(socket_.get(), &packet, MSG_NOSIGNAL) < 0) {
        if (errno != EINTR) return SendError(errno);
    }
    return ERROR_SUCCESS;
}

DWORD MessageSocket::TryReceive(void* buffer, DWORD size, bool wholeMessages, DWORD& received) {
    if (!HasMessage()) {
        const DWORD error = FetchMessage();
        if (error != ERROR_SUCCESS) return error;
    }
    const std::size_t left = message_.size() - next_;
    received = static_cast<DWORD>(std::min<std::size_t>(left, size));
    if (received > 0) std::memcpy(buffer, message_.data() + next_, received);
    next_ += received;
    if (received < left) return wholeMessages ? ERROR_MORE_DATA : ERROR_SUCCESS;
    DropMessage();
    return ERROR_SUCCESS;
}

bool MessageSocket::HasUnread() {
    return HasMessage() || FetchMessage() == ERROR_SUCCESS;
}

DWORD MessageSocket::FetchMessage() {
    BYTE none = 0;
    ssize_t size = 0;
    do {
        size = recv(socket_.get(), &none, 1, MSG_PEEK | MSG_TRUNC);
    } while (size < 0 && errno == EINTR);
    if (size < 0 && errno == EAGAIN) return ERROR_IO_PENDING;
    if (size <= 0) return ERROR_BROKEN_PIPE;
    message_.resize(static_cast<std::size_t>(size));
    if (recv(socket_.get(), message_.data(), message_.size(), 0) != size) {
        DropMessage();
        return ERROR_BROKEN_PIPE;
    }
    next_ = sizeof kMark;
    return ERROR_SUCCESS;
}

void MessageSocket::DropMessage() {
    if (message_.empty()) return;
    explicit_bzero(message_.data(), message_.size());  // it may have been a secret
    message_.clear();
}

}  // namespace platform
