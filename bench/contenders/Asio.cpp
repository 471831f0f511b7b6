#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <future>
#include <thread>

#include "Contender.h"

namespace kiv::bench {

namespace {

class AsioContender : public Contender {
public:
    AsioContender() : worker([this] { context.run(); }) {}
    ~AsioContender() override {
        work.reset();
        worker.join();
    }
    void run(const Task& task) override {
        std::promise<void> done;
        boost::asio::post(context, [&] {
            task();
            done.set_value();
        });
        done.get_future().get();
    }

private:
    boost::asio::io_context context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work =
        boost::asio::make_work_guard(context);
    std::thread worker;
};

}  // namespace

std::unique_ptr<Contender> makeAsio() { return std::make_unique<AsioContender>(); }

}  // namespace kiv::bench
