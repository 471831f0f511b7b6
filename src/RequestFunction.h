#ifndef KIVR_SRC_REQUESTFUNCTION_H
#define KIVR_SRC_REQUESTFUNCTION_H

#include <concepts>
#include <functional>
#include <memory>
#include <utility>

namespace kiv {

class ClientRequest;
class ClientResponse;

/// Posts a request to the worker thread and waits for its answer; empty if there is none. Stays
/// callable when the engine that it came from is gone. Every key has a copy, and all copies share
/// one function.
class RequestFunction {
public:
    template <class Callable>
    requires(!std::same_as<Callable, RequestFunction>) RequestFunction(Callable callable)
        : function(std::make_shared<const Function>(std::move(callable))) {}

    std::shared_ptr<ClientResponse> operator()(
        const std::shared_ptr<ClientRequest>& request) const {
        return (*function)(request);
    }

private:
    using Function =
        std::function<std::shared_ptr<ClientResponse>(const std::shared_ptr<ClientRequest>&)>;

    std::shared_ptr<const Function> function;
};

}  // namespace kiv

#endif
