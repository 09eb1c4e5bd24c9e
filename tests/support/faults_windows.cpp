#include <stdexcept>

#include "tests/support/faults.h"

FaultyRun RunWithFault(Fault, std::size_t, const std::string&, const std::vector<std::string>&) {
    throw std::logic_error("no faults at system calls");
}

SmallDisk::SmallDisk(const std::filesystem::path& folder, std::size_t) : folder_(folder) {}
SmallDisk::~SmallDisk() = default;
void SmallDisk::Fill(std::size_t) const {}
void SmallDisk::Empty() const {}
