#ifndef KIVR_SRC_REQUESTFUNCTION_H
#define KIVR_SRC_REQUESTFUNCTION_H

#include <functional>
#include <memory>

namespace kiv {

class ClientRequest;
class ClientResponse;

/// Posts a request to the worker thread and waits for its answer; empty if there is none. Stays
/// callable when the engine that it came from is gone. Every key has a copy.
using RequestFunction =
    std::function<std::shared_ptr<ClientResponse>(std::shared_ptr<ClientRequest>)>;

}  // namespace kiv

#endif
