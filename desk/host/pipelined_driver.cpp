#include "desk/host/pipelined_driver.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>

#include "host/lumresult.h"

namespace desk {

PipelinedDriver::PipelinedDriver(const DeskNode& node, size_t inFlight, size_t threads)
    : node_(node), inFlight_(inFlight) {
    std::generate_n(std::back_inserter(threads_), threads,
                    [this] { return std::thread([this] { Work(); }); });
}

PipelinedDriver::~PipelinedDriver() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isClosing_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

std::future<uint32_t> PipelinedDriver::Submit(const NodeFrame& frame) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return flights_.size() < inFlight_; });
    std::future<uint32_t> result = flights_.emplace_back(node_, frame).done.get_future();
    changed_.notify_all();
    return result;
}

PipelinedDriver::Flights::iterator PipelinedDriver::Ready() {
    return std::find_if(flights_.begin(), flights_.end(), [this](const Flight& flight) {
        const bool isNext = &flight == &flights_.front();
        return flight.stage == Stage::Handed ||
               (flight.stage == Stage::Declared && (isNext || !flight.request.IsSequential()));
    });
}

void PipelinedDriver::Work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        Flights::iterator ready;
        changed_.wait(lock, [&] {
            ready = Ready();
            return ready != flights_.end() || (isClosing_ && flights_.empty());
        });
        if (ready == flights_.end()) {
            return;
        }
        RunPass(ready, lock);
        changed_.notify_all();
    }
}

void PipelinedDriver::RunPass(Flights::iterator flight, std::unique_lock<std::mutex>& lock) {
    const bool isFirst = flight->stage == Stage::Handed;
    flight->stage = isFirst ? Stage::InFirstPass : Stage::InSecondPass;
    lock.unlock();
    std::optional<uint32_t> result;
    try {
        result = isFirst ? flight->request.FirstPass() : flight->request.SecondPass();
    } catch (...) {
        flight->done.set_exception(std::current_exception());
    }
    lock.lock();
    if (isFirst && result == LumResultSuccess) {
        flight->stage = Stage::Declared;
        return;
    }
    if (result) {
        flight->done.set_value(*result);
    }
    flights_.erase(flight);
}

}  // namespace desk
