#include "client/sncryptd/requests.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

#include "client/sncryptd/configuration_digest.h"
#include "client/sncryptd/crypto_state.h"
#include "client/utilsdll/crypto_context.h"
#include "common/format.h"
#include "common/handles.h"
#include "cryptd/SNCryptdAPI.h"

using utilsdll::CryptoContext;

namespace {

struct Request {
    MessageHeader header;
    std::span<const BYTE> payload;
    const Client& client;
};

// --- Replies ------------------------------------------------------------------------------------

constexpr DWORD kRefused = 0;  // command of a reply that refuses; param1 is a Windows error code

SecureBytes Reply(DWORD command, int param1, std::size_t payloadSize = 0) {
    const MessageHeader header = {
        .cmdId = command, .param1 = param1, .payloadSize = static_cast<DWORD>(payloadSize)};
    SecureBytes message(sizeof header + payloadSize);
    std::memcpy(message.data(), &header, sizeof header);
    return message;
}

SecureBytes Refuse(int error) {
    return Reply(kRefused, error);
}

SecureBytes ReplyTo(const Request& request, int param1, std::size_t payloadSize = 0) {
    return Reply(request.header.cmdId + 1, param1, payloadSize);
}

// --- Random bytes -------------------------------------------------------------------------------

SecureBytes GiveRandomBytes(const Request& request) {
    const int count = request.header.param1;
    const auto kind = static_cast<DWORD>(request.header.param2);
    if (count < 1 || count > static_cast<int>(kCryptdMostRandomBytes) ||
        kind > kCryptdEntropyBytes) {
        return Refuse(ERROR_INVALID_PARAMETER);
    }
    const auto context = CryptoContext();
    if (!context || !FipsError().empty()) return ReplyTo(request, 0);
    SecureBytes reply = ReplyTo(request, count, static_cast<std::size_t>(count));
    BYTE* const bytes = reply.data() + sizeof(MessageHeader);
    const auto size = static_cast<std::size_t>(count);
    constexpr unsigned kStrength = 256;
    // Entropy, from which others seed their generators, comes from a generator of its own.
    const int result = kind == kCryptdEntropyBytes
                           ? RAND_priv_bytes_ex(*context, bytes, size, kStrength)
                           : RAND_bytes_ex(*context, bytes, size, kStrength);
    return result == 1 ? std::move(reply) : ReplyTo(request, 0);
}

// --- Text ---------------------------------------------------------------------------------------

SecureBytes GiveText(const Request& request) {
    const WString text =
        FormatWide(TEXT("sncryptd, %S, FIPS error mode %s"), OpenSSL_version(OPENSSL_VERSION),
                   FipsError().empty() ? TEXT("off") : TEXT("on"));
    const std::size_t size = (text.size() + 1) * sizeof(WCHAR);
    SecureBytes reply = ReplyTo(request, 1, size);
    std::memcpy(reply.data() + sizeof(MessageHeader), text.c_str(), size);
    return reply;
}

// --- The FIPS error mode ------------------------------------------------------------------------

SecureBytes EnterErrorMode(const Request& request) {
    std::vector<WCHAR> message(request.payload.size() / sizeof(WCHAR));
    if (message.empty() || request.payload.size() % sizeof(WCHAR) != 0) {
        return Refuse(ERROR_INVALID_DATA);
    }
    std::memcpy(message.data(), request.payload.data(), request.payload.size());
    if (message.back() != 0) return Refuse(ERROR_INVALID_DATA);
    WString text = message.data();
    if (text.empty()) text = TEXT("(no message)");  // an error mode all the same
    return SetFipsError(text) ? ReplyTo(request, 0) : Refuse(ERROR_WRITE_FAULT);
}

// --- Configuration changes ----------------------------------------------------------------------

// Verdicts of a reply about the configuration state. Negative: not as the client wanted it.
enum Verdict {
    kDone = 0,
    kNoOpenChange = -1,      // a commit by a process that has begun no change
    kStateNotWritten = -2,   // the service could not keep the commit
    kChangedSince = -3,      // the configuration is not as the last commit left it
    kNeverCommitted = -4,    // no commit has recorded a configuration
    kUnknownOperation = -5,  // nothing that the service knows
};

constexpr std::size_t kMaxOpenChanges = 1'000;

// Who is no administrator cannot change the configuration, but backs it up: such a client's begin
// and commit are taken, and leave nothing behind.
bool MayChange(const Request& request) {
    return request.client.isAdministrator;
}

std::mutex changesMutex;

// When a process started; nothing when it cannot be learnt.
std::optional<ULONGLONG> StartOf(HANDLE process) {
    FILETIME start = {};
    FILETIME others[3] = {};
    if (!GetProcessTimes(process, &start, &others[0], &others[1], &others[2])) return std::nullopt;
    return ULONGLONG{start.dwHighDateTime} << 32 | start.dwLowDateTime;
}

UniqueHandle OpenForItsTimes(DWORD processId) {
    return UniqueHandle(
        OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
}

// In doubt the process goes on.
bool HasEnded(const OpenChange& change) {
    const UniqueHandle process = OpenForItsTimes(change.process);
    if (!process) return GetLastError() == ERROR_INVALID_PARAMETER;
    const auto start = StartOf(process.get());
    return (start && *start != change.start) ||
           WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0;
}

// A process that ended without a commit has given its changes up.
std::vector<OpenChange> ChangesOfLivingProcesses() {
    std::vector<OpenChange> changes = OpenChanges();
    std::erase_if(changes, HasEnded);
    return changes;
}

// The change of a client, which waits for the answer; nothing when its start cannot be learnt.
std::optional<OpenChange> ChangeOf(const Client& client) {
    const UniqueHandle process = OpenForItsTimes(client.process);
    const auto start = process ? StartOf(process.get()) : std::nullopt;
    if (!start) return std::nullopt;
    return OpenChange{.process = client.process, .start = *start};
}

SecureBytes BeginChange(const Request& request) {
    if (static_cast<DWORD>(request.header.param1) != kCryptdBeginChange) {
        return ReplyTo(request, kUnknownOperation);
    }
    if (!MayChange(request)) return ReplyTo(request, kDone);
    const auto change = ChangeOf(request.client);
    if (!change) return Refuse(ERROR_ACCESS_DENIED);
    const std::lock_guard lock(changesMutex);
    std::vector<OpenChange> changes = ChangesOfLivingProcesses();
    if (changes.size() >= kMaxOpenChanges) return Refuse(ERROR_NO_SYSTEM_RESOURCES);
    changes.push_back(*change);
    return SetOpenChanges(changes) ? ReplyTo(request, kDone) : Refuse(ERROR_WRITE_FAULT);
}

int Commit(const Client& client) {
    const auto change = ChangeOf(client);
    if (!change) return kNoOpenChange;
    const std::lock_guard lock(changesMutex);
    std::vector<OpenChange> changes = ChangesOfLivingProcesses();
    const auto own = std::ranges::find(changes, *change);
    if (own == changes.end()) return kNoOpenChange;
    changes.erase(own);
    const std::vector<BYTE> digest = ConfigurationDigest();
    return !digest.empty() && SetCommittedConfiguration(digest) && SetOpenChanges(changes)
               ? kDone
               : kStateNotWritten;
}

SecureBytes CommitChange(const Request& request) {
    if (static_cast<DWORD>(request.header.param1) != kCryptdCommitChange) {
        return ReplyTo(request, kUnknownOperation);
    }
    return ReplyTo(request, MayChange(request) ? Commit(request.client) : kDone);
}

int VerifyConfiguration() {
    const std::vector<BYTE> committed = CommittedConfiguration();
    if (committed.empty()) return kNeverCommitted;
    return committed == ConfigurationDigest() ? kDone : kChangedSince;
}

SecureBytes Verify(const Request& request) {
    const std::lock_guard lock(changesMutex);
    switch (static_cast<DWORD>(request.header.param1)) {
        case kCryptdVerifyCommitted:
            return ReplyTo(request, VerifyConfiguration());
        case kCryptdCountChanges:
            return ReplyTo(request, static_cast<int>(ChangesOfLivingProcesses().size()));
        default:
            return ReplyTo(request, kUnknownOperation);
    }
}

SecureBytes RefuseOperation(const Request& request) {
    return ReplyTo(request, kUnknownOperation);
}

// --- Commands -----------------------------------------------------------------------------------

struct Command {
    DWORD id;
    bool forAdministrators;
    SecureBytes (*answer)(const Request& request);
};
constexpr Command kCommands[] = {
    {CRYPTD_CTRL_CMD_ID_CONFIGURATION_REQ, true, RefuseOperation},
    {CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ, false, GiveRandomBytes},
    {CRYPTD_CTRL_CMD_ID_QUERY_TEXT_REQ, false, GiveText},
    {CRYPTD_CTRL_CMD_ID_FIPS_ERROR_MODE_REQ, true, EnterErrorMode},
    {CRYPTD_CTRL_CMD_ID_CONFIGURATION_MUTATE_STATE_REQ, false, BeginChange},
    {CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ, false, CommitChange},
    {CRYPTD_CTRL_CMD_ID_CONFIGURATION_STATE_VERIFY_REQ, true, Verify},
};

}  // namespace

SecureBytes Answer(std::span<const BYTE> message, const Client& client) {
    Request request = {{}, {}, client};
    if (!ReadHeader(message.data(), message.size(), request.header)) return {};
    request.payload = message.subspan(sizeof request.header);
    for (const Command& command : kCommands) {
        if (command.id != request.header.cmdId) continue;
        const bool mayAsk = client.isAdministrator || !command.forAdministrators;
        return mayAsk ? command.answer(request) : Refuse(ERROR_ACCESS_DENIED);
    }
    return Refuse(ERROR_INVALID_FUNCTION);
}
