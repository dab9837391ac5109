// Threads and dispatch tasks of the base library (vessa::sal::exec).
//
//   auto task = std::make_shared<AMethodWithArgDispatchTaskFor<Host, Request>>(host, &Host::work, request);
//   Thread t;
//   t.wire(task, 262144, 0);
//   t.start();
//   ...
//   t.wait();
//
// A task handle is reference-counted: the thread holds one reference while it runs. A Thread is a
// handle too: copies share one thread, and any copy may wait for it.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include "platform/Export.h"

namespace vessa::sal::exec {

class VESSA_API Task {
  public:
    virtual ~Task();
    virtual void run() = 0;
};

// Calls `(object->*method)(argument)` with the task's own copy of the argument. The object is not
// owned and must outlive the run.
template <class T, class Arg>
class AMethodWithArgDispatchTaskFor : public Task {
  public:
    typedef void (T::*Method)(Arg&);
    AMethodWithArgDispatchTaskFor(T* object, Method method, const Arg& argument)
        : object_(object), method_(method), argument_(argument) {}
    void run() override { (object_->*method_)(argument_); }

  private:
    T* object_;
    Method method_;
    Arg argument_;
};

class VESSA_API Thread {
  public:
    Thread();
    ~Thread();

    // Binds the task; `stackSize` in bytes is a lower bound (the platform never gives less than it
    // needs for the library's own work), `priority` is accepted for the suite's callers and not used.
    void wire(std::shared_ptr<Task> task, unsigned long stackSize, int priority);
    // Starts the thread; throws vessa::Exception when nothing is wired, it was started already, or
    // the system refuses a thread.
    void start();
    // Waits for the task to end (at once when it was never started). Safe to call more than once.
    void wait();
    // The text of the exception that ended the task, or "" when it returned normally. An exception
    // ends the thread, never the process.
    std::string failure() const;
    // The exception itself (null when the task ended normally), for callers that tell kinds apart.
    std::exception_ptr exception() const;

    struct State;  // opaque; shared by every copy of the handle and by the running thread

  private:
    std::shared_ptr<State> state_;
};

}  // namespace vessa::sal::exec
