// Memory for secrets. It lies in physical memory and does not reach the page file, as far as the
// system lets the process lock pages; where its quota is used up, the memory is an ordinary one.
#pragma once

#include <cstddef>

// Memory of that many bytes, aligned for every type. Throws std::bad_alloc when there is none.
void* AllocateLocked(std::size_t size);

// Wipes memory of AllocateLocked and gives it back; `size` is that of the allocation.
void FreeLocked(void* memory, std::size_t size);
