#include <utils/Looper.h>

#include <thread>

#include "Contender.h"

namespace kiv::bench {

namespace {

class TaskHandler : public android::MessageHandler {
public:
    void handleMessage(const android::Message&) override {
        (*task)();
        answer.give();
    }
    const Task* task = nullptr;
    Answer answer;
};

class LooperContender : public Contender {
public:
    LooperContender() {
        worker = std::thread([this] {
            while (!stopped) {
                looper->pollOnce(-1);
            }
        });
    }
    ~LooperContender() override {
        auto stop = [this] { stopped = true; };
        run(Task(stop));
        worker.join();
    }
    void run(const Task& task) override {
        handler->task = &task;
        looper->sendMessage(handler, android::Message());
        handler->answer.take();
    }

private:
    const android::sp<android::Looper> looper = new android::Looper(false);
    const android::sp<TaskHandler> handler = new TaskHandler;
    bool stopped = false;  ///< the worker's own
    std::thread worker;
};

}  // namespace

std::unique_ptr<Contender> makeLooper() { return std::make_unique<LooperContender>(); }

}  // namespace kiv::bench
