#pragma once

#include <cstdint>
#include <exception>
#include <thread>
#include <vector>

namespace tamo::core {

// Where slice `worker` of `workers` begins: slices are contiguous and equal to
// within one item, so joining per-slice results in worker order keeps the
// input's order.
constexpr std::uint64_t sliceBegin(std::uint64_t count, unsigned worker, unsigned workers) {
    return count * worker / workers;
}

// Runs work(worker, begin, end) once per slice and returns when all are done:
// on the calling thread for a single worker, else on one std::jthread per
// slice, all joined before this returns. The first exception of a worker, in
// worker order, is rethrown afterwards; a worker that wants the others to
// stop early must tell them itself.
template <typename Work>
void runInSlices(std::uint64_t count, unsigned workers, Work&& work) {
    if (workers <= 1) {
        work(0u, std::uint64_t{0}, count);
        return;
    }
    std::vector<std::exception_ptr> failures(workers);
    {
        std::vector<std::jthread> threads;
        threads.reserve(workers);
        for (unsigned worker = 0; worker < workers; ++worker) {
            threads.emplace_back([&, worker] {
                try {
                    work(worker, sliceBegin(count, worker, workers), sliceBegin(count, worker + 1, workers));
                } catch (...) {
                    failures[worker] = std::current_exception();
                }
            });
        }
    }
    for (const std::exception_ptr& failure : failures) {
        if (failure) std::rethrow_exception(failure);
    }
}

}  // namespace tamo::core
