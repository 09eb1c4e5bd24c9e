// A file that exists for the duration of one operation.
#pragma once

#include <memory>

#include "common/text.h"

// Puts a new file with this content in the place of the file at `path`: the tool's own account
// alone may use it, whoever could use the old one. False, with no file there, when that fails.
bool ReplaceByOwnFile(const WString& path, const void* content, std::size_t size);

// Owns a unique file in the process's temporary folder. At the end, also at that of an interrupted
// run, the file and the folder that was made for it are removed; a file that cannot be deleted is
// cut to nothing, and the log says so. That takes the tool's own rights: the owner is to outlive
// the session user's.
class TemporaryFile {
  public:
    // No file.
    TemporaryFile();
    // A new empty file, which the account that the thread impersonates can read and write, but not
    // replace; none when it cannot be made.
    static TemporaryFile Make();
    TemporaryFile(TemporaryFile&& other) noexcept;
    TemporaryFile& operator=(TemporaryFile&& other) noexcept;
    ~TemporaryFile();

    // Empty when there is no file.
    const WString& Path() const;

  private:
    struct File;
    std::unique_ptr<File> file_;
};
