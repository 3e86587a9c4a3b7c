#include "web/switch_workers.h"

#include <exception>
#include <optional>
#include <utility>

#include "common/log.h"

namespace pavo {

SwitchWorkers::SwitchWorkers(std::string clientName, std::size_t threads) : running_(threads) {
    for (std::size_t i = 0; i < threads; ++i)
        threads_.emplace_back([this, name = clientName + std::to_string(i + 1)] { run(name); });
}

SwitchWorkers::~SwitchWorkers() {
    static_cast<void>(stop({}));
    for (auto &thread : threads_)
        thread.join();
}

void SwitchWorkers::add(Job job, Turn turn) {
    {
        const std::lock_guard lock(mutex_);
        jobs_.insert(turn == Turn::Next ? jobs_.begin() : jobs_.end(), std::move(job));
    }
    changed_.notify_one();
}

bool SwitchWorkers::stop(std::chrono::milliseconds most) {
    std::unique_lock lock(mutex_);
    isStopping_ = true;
    jobs_.clear();
    changed_.notify_all();
    return changed_.wait_for(lock, most, [&] { return running_ == 0; });
}

void SwitchWorkers::run(const std::string &clientName) {
    std::optional<SwitchClient> client;
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return isStopping_ || !jobs_.empty(); });
        if (isStopping_)
            break;
        const Job job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        try {
            if (!client || !client->isConnected() || !client->get().checkConnectivity())
                client.emplace(clientName);
            job(*client);
        } catch (const std::exception &e) {
            logError("[%s:%d] %s\n", e.what());
        }
        lock.lock();
    }
    lock.unlock();
    client.reset();
    lock.lock();
    --running_;
    changed_.notify_all();
}

}  // namespace pavo
