#include "common/security.h"

#include <sddl.h>

#include <array>

#include "common/handles.h"

AccessList::AccessList(const WCHAR* list) {
    ConvertStringSecurityDescriptorToSecurityDescriptorW(
        list, SDDL_REVISION_1, &attributes_.lpSecurityDescriptor, nullptr);
}

AccessList::~AccessList() {
    LocalFree(attributes_.lpSecurityDescriptor);
}

bool AccessList::ApplyTo(HANDLE object) const {
    constexpr SECURITY_INFORMATION kList =
        DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION;
    return SetKernelObjectSecurity(object, kList, attributes_.lpSecurityDescriptor) != FALSE;
}

bool IsMemberOf(WELL_KNOWN_SID_TYPE group, HANDLE token) {
    std::array<BYTE, SECURITY_MAX_SID_SIZE> sid = {};
    DWORD size = SECURITY_MAX_SID_SIZE;
    BOOL isMember = FALSE;
    return CreateWellKnownSid(group, nullptr, sid.data(), &size) &&
           CheckTokenMembership(token, sid.data(), &isMember) && isMember;
}

bool IsAdministrator() {
    return IsMemberOf(WinBuiltinAdministratorsSid) || IsMemberOf(WinLocalSystemSid);
}

namespace {

// Who owns an opened object.
class ObjectOwner {
  public:
    ObjectOwner(HANDLE object, SE_OBJECT_TYPE type) {
        if (GetSecurityInfo(object, type, OWNER_SECURITY_INFORMATION, &owner_, nullptr, nullptr,
                            nullptr, &descriptor_) != ERROR_SUCCESS) {
            owner_ = nullptr;
            descriptor_ = nullptr;
        }
    }
    ObjectOwner(const ObjectOwner&) = delete;
    ObjectOwner& operator=(const ObjectOwner&) = delete;
    ~ObjectOwner() { LocalFree(descriptor_); }

    bool AreAdministrators() const {
        return owner_ != nullptr && (IsWellKnownSid(owner_, WinLocalSystemSid) ||
                                     IsWellKnownSid(owner_, WinBuiltinAdministratorsSid));
    }

    bool IsThisProcess() const {
        UniqueHandle token;
        std::array<BYTE, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user = {};
        DWORD size = user.size();
        return owner_ != nullptr &&
               OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()) &&
               GetTokenInformation(token.get(), TokenUser, user.data(), size, &size) &&
               EqualSid(owner_, reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid);
    }

  private:
    PSID owner_ = nullptr;
    PSECURITY_DESCRIPTOR descriptor_ = nullptr;
};

}  // namespace

bool IsOwnedByAdministrators(HANDLE object, SE_OBJECT_TYPE type) {
    return ObjectOwner(object, type).AreAdministrators();
}

bool IsOwnedByClient(HANDLE object, SE_OBJECT_TYPE type) {
    const ObjectOwner owner(object, type);
    return owner.AreAdministrators() || (owner.IsThisProcess() && IsAdministrator());
}

bool IsOwnedByTrusted(HANDLE file) {
    const ObjectOwner owner(file, SE_FILE_OBJECT);
    return owner.AreAdministrators() || owner.IsThisProcess();
}
