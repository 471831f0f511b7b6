#include <uv.h>

#include <thread>

#include "Contender.h"

namespace kiv::bench {

namespace {

class LibuvContender : public Contender {
public:
    LibuvContender() {
        uv_loop_init(&loop);
        uv_async_init(&loop, &async, [](uv_async_t* handle) {
            auto* const self = static_cast<LibuvContender*>(handle->data);
            (*self->task)();
            self->answer.give();
        });
        async.data = this;
        worker = std::thread([this] { uv_run(&loop, UV_RUN_DEFAULT); });
    }
    ~LibuvContender() override {
        auto stop = [this] { uv_close(reinterpret_cast<uv_handle_t*>(&async), nullptr); };
        run(Task(stop));
        worker.join();
        uv_loop_close(&loop);
    }
    void run(const Task& newTask) override {
        task = &newTask;
        uv_async_send(&async);
        answer.take();
    }

private:
    uv_loop_t loop{};
    uv_async_t async{};
    const Task* task = nullptr;
    Answer answer;
    std::thread worker;
};

}  // namespace

std::unique_ptr<Contender> makeLibuv() { return std::make_unique<LibuvContender>(); }

}  // namespace kiv::bench
