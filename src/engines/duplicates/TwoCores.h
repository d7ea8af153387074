#pragma once

// Work shared between this thread and one more, private to the engine: the scans read and hash two
// files at a time, which keeps both cores of a modest machine busy.

#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>

namespace nuvrel {

inline bool cancelled(const std::atomic<bool>* cancel)
{
    return cancel && cancel->load(std::memory_order_relaxed);
}

/// Runs `work(i)` for every i below `count`, on this thread and one more, until cancelled. What the
/// helper thread throws is thrown here once both are done, as if the work had run on one thread.
template <typename Work>
void onTwoCores(size_t count, const std::atomic<bool>* cancel, const Work& work)
{
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    std::mutex failing;
    const auto worker = [&] {
        try {
            for (size_t i = next++; i < count && !cancelled(cancel); i = next++)
                work(i);
        } catch (...) {
            const std::lock_guard guard(failing);
            if (!failure)
                failure = std::current_exception();
            next = count; // the other thread stops too
        }
    };
    std::thread helper(worker);
    worker();
    helper.join();
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace nuvrel
