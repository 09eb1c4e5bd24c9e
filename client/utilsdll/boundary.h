// The edge of the library: nothing that is thrown inside leaves an exported function.
#pragma once

// What `work` returns, or `failure` when it throws (memory ran out).
template <typename Result, typename Work>
Result Guarded(Result failure, Work work) noexcept {
    try {
        return work();
    } catch (...) {
        return failure;
    }
}
