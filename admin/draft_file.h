// A new file that takes the place of another one in one step, or leaves it alone.
#pragma once

#include <functional>

#include "app/services/interruption.h"
#include "common/text.h"

// The draft stands beside its destination under the destination's name and ".snbackup-draft"; the
// caller's account alone may use it, and the file that it becomes. What a run that was killed left
// under that name is replaced. The destructor, and an interruption, removes a draft that has not
// taken its place.
class DraftFile {
  public:
    // Writes the content to the disk. Throws Failure when that fails.
    DraftFile(WString destination, const void* content, std::size_t size);
    DraftFile(const DraftFile&) = delete;
    DraftFile& operator=(const DraftFile&) = delete;
    ~DraftFile();

    const WString& Path() const { return path_; }
    // Throws Failure, with the destination as it was, when that fails.
    void TakePlace();

  private:
    WString destination_;
    WString path_;
    bool isDraft_ = false;
    TidyOnInterruption tidy_{[this] { return Remove(); }};

    bool Remove();
};
