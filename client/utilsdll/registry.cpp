#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/protected_string.h"
#include "client/utilsdll/registry_lock.h"
#include "common/handles.h"
#include "common/registry_access.h"

using namespace utilsdll;

namespace {

constexpr REGSAM kReadAndSet = KEY_READ | KEY_SET_VALUE;

// --- Memory that is handed out ------------------------------------------------------------------

// Stands before what a getter hands out, so that reg_free can wipe it: it may hold a secret.
struct alignas(std::max_align_t) ResultHeader {
    std::size_t size;
};

// A copy for the caller; null when memory runs out.
void* MakeResult(const void* data, std::size_t size) {
    void* memory = std::malloc(sizeof(ResultHeader) + size);
    if (memory == nullptr) return nullptr;
    auto* header = new (memory) ResultHeader{size};
    return std::memcpy(header + 1, data, size);
}

// --- Values -------------------------------------------------------------------------------------

// The values of a key that a walk visits, read when they are first asked for: one call of the
// registry for each value instead of one for each question about it.
class VisitedKey {
  public:
    // The visited key of the calling thread ends with the object.
    explicit VisitedKey(HKEY key) : key_(key), outer_(current) { current = this; }
    VisitedKey(const VisitedKey&) = delete;
    VisitedKey& operator=(const VisitedKey&) = delete;
    ~VisitedKey() { current = outer_; }

    // Null for a key that is not being visited, and when its values cannot be read all at once.
    static const VisitedKey* Of(HKEY key) {
        VisitedKey* visited = current;
        while (visited != nullptr && visited->key_ != key) visited = visited->outer_;
        return visited != nullptr && visited->IsRead() ? visited : nullptr;
    }

    const std::vector<RegistryValue>& Values() const { return values_; }
    const RegistryValue* Find(const WCHAR* name) const {
        const auto found = indices_.find(name == nullptr ? WString() : WString(name));
        return found == indices_.end() ? nullptr : &values_[found->second];
    }

  private:
    bool IsRead() {
        if (state_ == State::kUnread) {
            values_.clear();  // where memory ran out at the last try
            indices_.clear();
            state_ = ReadValues(key_, values_) ? State::kRead : State::kUnreadable;
            for (std::size_t i = 0; i < values_.size(); ++i) indices_.emplace(values_[i].name, i);
        }
        return state_ == State::kRead;
    }

    static thread_local VisitedKey* current;

    HKEY key_;
    VisitedKey* outer_;
    enum class State { kUnread, kRead, kUnreadable } state_ = State::kUnread;
    std::vector<RegistryValue> values_;
    std::map<WString, std::size_t, LessIgnoringCase> indices_;
};
thread_local VisitedKey* VisitedKey::current = nullptr;

// Reads a value of one type whole, also when it grows meanwhile.
bool ReadValue(HKEY key, const WCHAR* name, DWORD wantedType, SecureBytes& data) {
    if (const VisitedKey* visited = VisitedKey::Of(key)) {
        const RegistryValue* value = visited->Find(name);
        if (value == nullptr || value->type != wantedType) return false;
        data = value->data;
        return true;
    }
    constexpr std::size_t kUsualSize = 512;
    SecureBytes bytes(kUsualSize);
    DWORD size = 0;
    DWORD type = REG_NONE;
    LSTATUS result;
    do {
        bytes.resize(std::max(bytes.size(), std::size_t{size}));
        size = static_cast<DWORD>(bytes.size());
        result = RegQueryValueExW(key, name, nullptr, &type, bytes.data(), &size);
    } while (result == ERROR_MORE_DATA);
    if (result != ERROR_SUCCESS || type != wantedType) return false;
    bytes.resize(size);
    data.swap(bytes);
    return true;
}

// The characters of the stored bytes; half a character at the end does not count.
WStringView UnitsOf(const SecureBytes& bytes) {
    return {reinterpret_cast<const WCHAR*>(bytes.data()), bytes.size() / sizeof(WCHAR)};
}

// A text as it is stored, up to its first terminator.
class StoredText {
  public:
    StoredText(HKEY key, const WCHAR* name) : isRead_(ReadValue(key, name, REG_SZ, bytes_)) {}
    bool IsRead() const { return isRead_; }
    WStringView Text() const { return UnitsOf(bytes_).substr(0, UnitsOf(bytes_).find(WCHAR{0})); }

  private:
    SecureBytes bytes_;
    bool isRead_;
};

// Hands out a copy of a text.
template <typename Text>
bool HandOut(const Text& text, WCHAR** copy) {
    void* result = MakeResult(text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    if (result == nullptr) return false;
    *copy = static_cast<WCHAR*>(result);
    return true;
}

// Hands out the text behind a stored form.
bool HandOutPlain(WStringView stored, WCHAR** text, DWORD* characters) {
    SecureText plain;
    if (!ReadStoredString(stored, plain) || !HandOut(plain, text)) return false;
    if (characters != nullptr) *characters = static_cast<DWORD>(plain.size());
    return true;
}

bool WriteValue(HKEY key, const WCHAR* name, DWORD type, const void* data, std::size_t size) {
    return MayWrite(key) && RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data),
                                           static_cast<DWORD>(size)) == ERROR_SUCCESS;
}

bool WriteText(HKEY key, const WCHAR* name, const WString& stored) {
    return WriteValue(key, name, REG_SZ, stored.c_str(), (stored.size() + 1) * sizeof(WCHAR));
}

bool WriteProtected(HKEY key, const WCHAR* name, const WCHAR* text, Protection protection) {
    WString stored;
    return text != nullptr && ProtectString(text, protection, stored) &&
           WriteText(key, name, stored);
}

// --- The walk -----------------------------------------------------------------------------------

class Walk {
  public:
    Walk(reg_visitorW visitor, void* context) : visitor_(visitor), context_(context) {}

    // Visits what lies below the key; false when the visitor ended the walk.
    bool VisitBelow(HKEY key, const WString& path) {
        // The names are read first: the visitor may change what it walks over.
        std::vector<WString> names;
        if (!SubkeyNames(key, names)) readAll_ = false;
        for (const WString& name : names) {
            UniqueRegKey subkey;
            const LSTATUS opened = RegOpenKeyExW(key, name.c_str(), 0, KEY_READ, subkey.put());
            if (opened == ERROR_FILE_NOT_FOUND) continue;  // deleted since
            if (opened != ERROR_SUCCESS) {
                readAll_ = false;
                continue;
            }
            WString subpath = path;
            subpath.append(TEXT("\\")).append(name);
            if (!Visit(subkey.get(), subpath)) return false;
            if (!VisitBelow(subkey.get(), subpath)) return false;
        }
        return true;
    }

    bool ReadAll() const { return readAll_; }

  private:
    bool Visit(HKEY key, const WString& path) {
        const VisitedKey visited(key);
        return visitor_(key, path.c_str(), context_);
    }

    reg_visitorW visitor_;
    void* context_;
    bool readAll_ = true;
};

}  // namespace

extern "C" {

// --- Keys ---------------------------------------------------------------------------------------

HKEY reg_openkeyW(HKEY parent, const WCHAR* path) {
    HKEY key = nullptr;
    return RegOpenKeyExW(parent, path, 0, kReadAndSet, &key) == ERROR_SUCCESS ? key : nullptr;
}

HKEY reg_createkeyW(HKEY parent, const WCHAR* path) {
    return Guarded<HKEY>(nullptr, [&]() -> HKEY {
        if (path == nullptr) return nullptr;
        WString trimmed(path);
        if (trimmed.ends_with(TEXT('\\'))) trimmed.pop_back();
        HKEY key = nullptr;
        if (!MayCreate(parent, trimmed.c_str()) ||
            RegCreateKeyExW(parent, trimmed.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                            kReadAndSet, nullptr, &key, nullptr) != ERROR_SUCCESS) {
            return nullptr;
        }
        return key;
    });
}

void reg_closekeyW(HKEY key) {
    if (key != nullptr) RegCloseKey(key);
}

// --- Reading ------------------------------------------------------------------------------------

bool reg_getstringW(HKEY key, const WCHAR* name, WCHAR** text, DWORD* characters) {
    return Guarded(false, [&] {
        const StoredText stored(key, name);
        return text != nullptr && stored.IsRead() && HandOutPlain(stored.Text(), text, characters);
    });
}

bool reg_open_stored_stringW(const WCHAR* stored, WCHAR** text, DWORD* characters,
                             bool* isProtected) {
    return Guarded(false, [&] {
        if (stored == nullptr || text == nullptr || isProtected == nullptr ||
            !HandOutPlain(stored, text, characters)) {
            return false;
        }
        *isProtected = IsProtectedString(stored);
        return true;
    });
}

bool reg_make_stored_stringW(const WCHAR* text, bool isProtected, WCHAR** stored) {
    return Guarded(false, [&] {
        if (text == nullptr || stored == nullptr) return false;
        WString form = isProtected ? WString() : StoreString(text);
        if (isProtected && !ProtectString(text, Protection::kMachine, form)) return false;
        return HandOut(form, stored);
    });
}

bool reg_getmultistringW(HKEY key, const WCHAR* name, WCHAR** data, DWORD* bytes) {
    return Guarded(false, [&] {
        SecureBytes stored;
        if (data == nullptr || bytes == nullptr || !ReadValue(key, name, REG_MULTI_SZ, stored)) {
            return false;
        }
        const WStringView read = UnitsOf(stored);
        std::vector<WCHAR, WipingAllocator<WCHAR>> units(read.begin(), read.end());
        while (units.size() < 2 || units[units.size() - 1] != 0 || units[units.size() - 2] != 0) {
            units.push_back(WCHAR{0});
        }
        const std::size_t size = units.size() * sizeof(WCHAR);
        void* result = MakeResult(units.data(), size);
        if (result == nullptr) return false;
        *data = static_cast<WCHAR*>(result);
        *bytes = static_cast<DWORD>(size);
        return true;
    });
}

bool reg_getDWORDW(HKEY key, const WCHAR* name, DWORD* number) {
    return Guarded(false, [&] {
        SecureBytes data;
        if (number == nullptr || !ReadValue(key, name, REG_DWORD, data) ||
            data.size() != sizeof *number) {
            return false;
        }
        std::memcpy(number, data.data(), sizeof *number);
        return true;
    });
}

bool reg_is_encrypted_valueW(HKEY key, const WCHAR* name) {
    return Guarded(false, [&] {
        const StoredText stored(key, name);
        return stored.IsRead() && IsProtectedString(stored.Text());
    });
}

bool reg_getvaluecount(HKEY key, DWORD* count, DWORD reserved) {
    return Guarded(false, [&] {
        if (count == nullptr || reserved != 0) return false;
        if (const VisitedKey* visited = VisitedKey::Of(key)) {
            *count = static_cast<DWORD>(visited->Values().size());
            return true;
        }
        DWORD values = 0;
        if (RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values,
                             nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return false;
        }
        *count = values;
        return true;
    });
}

bool reg_getvaluenamebyindexW(HKEY key, DWORD index, WCHAR* name, DWORD capacity) {
    return Guarded(false, [&] {
        if (name == nullptr || capacity == 0) return false;
        if (const VisitedKey* visited = VisitedKey::Of(key)) {
            if (index >= visited->Values().size()) return false;
            const WString& found = visited->Values()[index].name;
            if (found.size() >= capacity) return false;
            std::memcpy(name, found.c_str(), (found.size() + 1) * sizeof(WCHAR));
            return true;
        }
        WString buffer(capacity, WCHAR{0});
        DWORD length = capacity;
        if (RegEnumValueW(key, index, buffer.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            return false;
        }
        std::memcpy(name, buffer.c_str(), (length + std::size_t{1}) * sizeof(WCHAR));
        return true;
    });
}

void reg_free(void* data) {
    if (data == nullptr) return;
    auto* header = static_cast<ResultHeader*>(data) - 1;
    WipeMemory(data, header->size);
    std::free(header);
}

bool reg_walk2W(HKEY key, const WCHAR* path, reg_visitorW visitor, void* context) {
    return Guarded(false, [&] {
        if (path == nullptr || visitor == nullptr) return false;
        Walk walk(visitor, context);
        return walk.VisitBelow(key, path) && walk.ReadAll();
    });
}

// --- Writing ------------------------------------------------------------------------------------

bool reg_setstringW(HKEY key, const WCHAR* name, const WCHAR* text) {
    return Guarded(false,
                   [&] { return text != nullptr && WriteText(key, name, StoreString(text)); });
}

bool reg_setstring_encW(HKEY key, const WCHAR* name, const WCHAR* text) {
    return Guarded(false, [&] { return WriteProtected(key, name, text, Protection::kMachine); });
}

bool reg_setstring_enc_cuW(HKEY key, const WCHAR* name, const WCHAR* text) {
    return Guarded(false, [&] { return WriteProtected(key, name, text, Protection::kUser); });
}

bool reg_setDWORDW(HKEY key, const WCHAR* name, DWORD number) {
    return Guarded(false, [&] { return WriteValue(key, name, REG_DWORD, &number, sizeof number); });
}

bool reg_setmultistringW(HKEY key, const WCHAR* name, const WCHAR* list) {
    return Guarded(false, [&] {
        if (list == nullptr) return false;
        const WCHAR* end = list;
        while (*end != 0) end += WStringView(end).size() + 1;
        return WriteValue(key, name, REG_MULTI_SZ, list,
                          static_cast<std::size_t>(end + 1 - list) * sizeof(WCHAR));
    });
}

bool reg_removevalueW(HKEY key, const WCHAR* name) {
    return Guarded(false,
                   [&] { return MayWrite(key) && RegDeleteValueW(key, name) == ERROR_SUCCESS; });
}

}  // extern "C"
