#include <morva/occlusion/morva_osg_ambient_occlusion_work.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include <morva/core/morva_osg_sink.h>

namespace morva::osg {

namespace {

/// Elements of a piece: some milliseconds of rays.
constexpr std::size_t piece_size = 32;
/// Between two words on how far a geometry is.
constexpr std::chrono::milliseconds progress_pause{50};
/// More threads than this would only stand in each other's way.
constexpr std::size_t most_threads = 64;

/// The pieces of all geometries, end to end, and who is where.
class piece_queue {
  public:
    explicit piece_queue(const vertex_work& all)
        : work_(all), first_piece_(1, 0),
          left_(std::make_unique<std::atomic<std::size_t>[]>(all.counts.size())) {
        for (std::size_t i = 0; i < all.counts.size(); ++i) {
            const std::size_t pieces = (all.counts[i] + piece_size - 1) / piece_size;
            first_piece_.push_back(first_piece_.back() + pieces);
            left_[i] = pieces;
        }
    }

    std::size_t pieces() const { return first_piece_.back(); }
    std::size_t elementsDone() const { return done_.load(std::memory_order_relaxed); }

    /// Does the next piece; false if none is left.
    bool doNext() {
        const std::size_t piece = next_.fetch_add(1);
        if (piece >= pieces())
            return false;
        const auto behind = std::upper_bound(first_piece_.begin(), first_piece_.end(), piece);
        const auto geometry = static_cast<std::size_t>(behind - first_piece_.begin()) - 1;
        const std::size_t first = (piece - first_piece_[geometry]) * piece_size;
        const std::size_t last = std::min(first + piece_size, work_.counts[geometry]);
        work_.piece(geometry, first, last);
        done_.fetch_add(last - first, std::memory_order_relaxed);
        if (left_[geometry].fetch_sub(1) == 1) {
            const std::lock_guard<std::mutex> guard(mutex_);
            finished_.notify_all();
        }
        return true;
    }

    /// What a helper does until nothing is left.
    void help() noexcept {
        try {
            while (doNext()) {
            }
        } catch (...) {
            const std::lock_guard<std::mutex> guard(mutex_);
            if (!failure_)
                failure_ = std::current_exception();
            next_ = pieces();
            finished_.notify_all();
        }
    }

    void stop() { next_ = pieces(); }

    bool isFinished(std::size_t geometry) const { return left_[geometry] == 0; }

    /// Waits for the helpers that have the last pieces of a geometry.
    /// errors  what one of them met
    void waitFor(std::size_t geometry) {
        std::unique_lock<std::mutex> lock(mutex_);
        finished_.wait(lock, [&] { return failure_ != nullptr || isFinished(geometry); });
        if (failure_)
            std::rethrow_exception(failure_);
    }

  private:
    const vertex_work& work_;
    std::vector<std::size_t> first_piece_;             ///< of each geometry, and one more
    std::unique_ptr<std::atomic<std::size_t>[]> left_; ///< pieces that are not done, by geometry
    std::atomic<std::size_t> next_{0};                 ///< piece
    std::atomic<std::size_t> done_{0};                 ///< elements
    std::mutex mutex_;
    std::condition_variable finished_; ///< a geometry is, or a helper has failed
    std::exception_ptr failure_;       ///< under `mutex_`
};

/// The helpers of a queue; at the end of the scope they are gone.
class helper_threads {
  public:
    helper_threads(piece_queue& pieces, std::size_t count) : queue_(pieces) {
        try {
            for (std::size_t i = 0; i < count; ++i)
                threads_.emplace_back([this] { queue_.help(); });
        } catch (const std::exception&) {
            // No thread or no memory for one: those that there are do the work.
        }
    }
    helper_threads(const helper_threads&) = delete;
    helper_threads& operator=(const helper_threads&) = delete;
    ~helper_threads() {
        queue_.stop();
        for (std::thread& thread : threads_)
            thread.join();
    }

  private:
    piece_queue& queue_;
    std::vector<std::thread> threads_;
};

} // namespace

void work_progress::sayEnd(std::size_t number, std::size_t count) const {
    const float share = static_cast<float>(number) / static_cast<float>(count) * 100.0F;
    char text[32];
    std::snprintf(text, sizeof text, "\r%.0f%%", static_cast<double>(share));
    say_progress(done, total, {text});
}

void work_progress::sayPiece() const { say_progress(done, total, {}, flush::no); }

void doInOrder(const vertex_work& work, unsigned int threads, work_progress& progress) {
    piece_queue queue(work);
    progress = {};
    for (const std::size_t count : work.counts)
        progress.total += count;
    const std::size_t wanted = std::min({std::size_t(threads), queue.pieces(), most_threads});
    const helper_threads helpers(queue, wanted > 1 ? wanted - 1 : 0);
    auto said = std::chrono::steady_clock::now();
    for (std::size_t geometry = 0; geometry < work.counts.size(); ++geometry) {
        while (!queue.isFinished(geometry) && queue.doNext()) {
            if (std::chrono::steady_clock::now() - said < progress_pause)
                continue;
            said = std::chrono::steady_clock::now();
            progress.done = queue.elementsDone();
            progress.sayPiece();
        }
        queue.waitFor(geometry);
        progress.done = queue.elementsDone();
        work.end(geometry);
    }
}

} // namespace morva::osg
