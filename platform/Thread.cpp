#include "platform/Thread.h"

#include <pthread.h>

#include <algorithm>
#include <mutex>

#include "platform/Exception.h"

namespace vessa::sal::exec {

namespace {
// What the library's own work on a worker (a whole discovery run) needs, with room for sanitizers.
constexpr unsigned long kMinimumStack = 8ul * 1024 * 1024;
}  // namespace

Task::~Task() = default;

struct Thread::State {
    std::mutex mutex;
    std::mutex joinMutex;  // held while one waiter joins, so that every other waiter waits too
    std::shared_ptr<Task> task;
    unsigned long stackSize = 0;
    bool started = false;
    bool joined = false;
    pthread_t thread{};
    std::string failure;
    std::exception_ptr exception;
};

Thread::Thread() : state_(std::make_shared<State>()) {}

Thread::~Thread() = default;

void Thread::wire(std::shared_ptr<Task> task, unsigned long stackSize, int /*priority*/) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->task = std::move(task);
    state_->stackSize = stackSize;
}

namespace {

void* runTask(void* arg) {
    auto* state = static_cast<std::shared_ptr<Thread::State>*>(arg);
    std::shared_ptr<Thread::State> s = *state;
    delete state;
    std::string failure;
    std::exception_ptr exception;
    try {
        s->task->run();
    } catch (const vessa::Exception& e) {
        failure = std::string(e.typeName()) + ": " + e.why();
        exception = std::current_exception();
    } catch (const std::exception& e) {
        failure = e.what();
        exception = std::current_exception();
    } catch (...) {
        failure = "unknown exception";
        exception = std::current_exception();
    }
    std::lock_guard<std::mutex> lock(s->mutex);
    s->failure = failure;
    s->exception = exception;
    return nullptr;
}

}  // namespace

void Thread::start() {
    std::lock_guard<std::mutex> lock(state_->mutex);
    if (!state_->task) {
        throw Exception("thread started without a task", sal::err::kNullHandle);
    }
    if (state_->started) {
        throw Exception("thread started twice", sal::err::kUnsupported);
    }
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, std::max(state_->stackSize, kMinimumStack));
    auto* arg = new std::shared_ptr<State>(state_);
    int rc = pthread_create(&state_->thread, &attr, runTask, arg);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        delete arg;
        throw SystemException("pthread_create", rc);
    }
    state_->started = true;
}

void Thread::wait() {
    std::lock_guard<std::mutex> joining(state_->joinMutex);
    pthread_t thread;
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        if (!state_->started || state_->joined) {
            return;
        }
        thread = state_->thread;
    }
    pthread_join(thread, nullptr);
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->joined = true;
}

std::exception_ptr Thread::exception() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->exception;
}

std::string Thread::failure() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->failure;
}

}  // namespace vessa::sal::exec
