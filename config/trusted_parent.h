// The process that started this one, as far as an import trusts it.
#pragma once

// True when the image file of the parent process is the client's scheduler or the Windows
// Installer. A parent that cannot be looked at is not trusted.
bool IsParentTrusted();
