// Work on several threads, results handed on in input order.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace cli {

// Runs work(index, worker) for every index below n on `jobs` threads (worker is 0..jobs-1, so
// that each thread can keep its own state), and calls emit(index, result) on the calling thread
// in index order, each as soon as it and all before it are done.
template <typename Result>
void orderedPool(size_t n, int jobs, const std::function<Result(size_t, int)>& work,
                 const std::function<void(size_t, Result&)>& emit) {
    std::vector<std::optional<Result>> done(n);
    std::mutex lock;
    std::condition_variable ready;
    std::atomic<size_t> next{0};
    auto worker = [&](int id) {
        for (size_t i; (i = next++) < n;) {
            Result r = work(i, id);
            std::lock_guard<std::mutex> hold(lock);
            done[i] = std::move(r);
            ready.notify_one();
        }
    };
    std::vector<std::thread> threads;
    const int count = std::max(1, std::min<int>(jobs, static_cast<int>(n)));
    for (int t = 0; t < count; ++t) threads.emplace_back(worker, t);
    for (size_t i = 0; i < n; ++i) {
        std::unique_lock<std::mutex> hold(lock);
        ready.wait(hold, [&] { return done[i].has_value(); });
        Result r = std::move(*done[i]);
        done[i].reset();
        hold.unlock();
        emit(i, r);
    }
    for (std::thread& t : threads) t.join();
}

}  // namespace cli
