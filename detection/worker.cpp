#include "detection/worker.h"

#include <utility>

namespace {

struct StartRecord {
    Worker::Entry entry;
    void *argument;
    std::shared_ptr<std::atomic<bool>> alive;
};

class AliveMark {
  public:
    explicit AliveMark(std::shared_ptr<std::atomic<bool>> alive) : alive_(std::move(alive)) {}
    ~AliveMark() { alive_->store(false); }
    AliveMark(const AliveMark &) = delete;
    AliveMark &operator=(const AliveMark &) = delete;

  private:
    std::shared_ptr<std::atomic<bool>> alive_;
};

void *threadMain(void *argument) {
    const std::unique_ptr<StartRecord> start(static_cast<StartRecord *>(argument));
    // pthread_exit unwinds the stack, so the mark falls on every way out of `entry`.
    const AliveMark mark(start->alive);
    return start->entry(start->argument);
}

}  // namespace

ThreadAttributes::ThreadAttributes() {
    pthread_attr_init(&attributes_);
    pthread_attr_setstacksize(&attributes_, kStackSize);
    pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
}

ThreadAttributes::~ThreadAttributes() {
    pthread_attr_destroy(&attributes_);
}

int Worker::start(ThreadCreate create, const ThreadAttributes &attributes, Entry entry, void *argument) {
    // Marked before the thread exists: it may end before `create` returns. A mark of its own for each thread,
    // so that one on its way out cannot clear that of its successor.
    alive_ = std::make_shared<std::atomic<bool>>(true);
    auto record = std::make_unique<StartRecord>(StartRecord{entry, argument, alive_});
    const int result = create(&id_, attributes.get(), threadMain, record.get());
    if (result != 0) {
        alive_->store(false);
        return result;
    }
    static_cast<void>(record.release());  // the thread's from here on
    return 0;
}
