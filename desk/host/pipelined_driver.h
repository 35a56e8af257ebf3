#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <future>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "desk/host/desk_node.h"

namespace desk {

/// Drives one node as a camera framework does all day: several requests are in flight, and their passes run
/// on several threads, in any order that the dependency records allow. A first pass waits for nothing. A
/// second pass waits for the first of its own request and, where the node asked for sequential execution,
/// until every request handed over before is done.
class PipelinedDriver {
public:
    /// At most `inFlight` requests at a time, their passes on `threads` threads of the driver's own; both at
    /// least 1. The node must outlive the driver.
    PipelinedDriver(const DeskNode& node, size_t inFlight, size_t threads);
    /// Waits until every request is done.
    ~PipelinedDriver();
    PipelinedDriver(const PipelinedDriver&) = delete;
    PipelinedDriver& operator=(const PipelinedDriver&) = delete;

    /// Hands a frame over, once fewer than `inFlight` are on their way, among which no other has its request
    /// id. The future holds the result of the pass that failed, or of the second.
    std::future<uint32_t> Submit(const NodeFrame& frame);

private:
    enum class Stage { Handed, InFirstPass, Declared, InSecondPass };
    struct Flight {
        Flight(const DeskNode& node, const NodeFrame& frame) : request(node, frame) {}
        NodeRequest request;
        Stage stage = Stage::Handed;
        std::promise<uint32_t> done;
    };
    using Flights = std::list<Flight>;

    void Work();
    /// The first request in order of which a pass may run; the end when there is none.
    Flights::iterator Ready();
    /// Runs the pass with the lock released. A request that is done leaves the list.
    void RunPass(Flights::iterator flight, std::unique_lock<std::mutex>& lock);

    const DeskNode& node_;
    const size_t inFlight_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Flights flights_;  // in the order they were handed over
    bool isClosing_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace desk
