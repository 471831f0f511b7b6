#include "Interposed.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <system_error>

#include "wds_v01.h"

namespace kiv::test {
namespace {

std::atomic<Call> tortured{Call::Memory};
std::atomic<int> callsLeft{0};  // until one fails; none does at 0 and below
std::atomic<bool> failed{false};
thread_local bool ofLibrary = false;
thread_local bool tortures = false;

bool fails(Call call) {
    const bool now = ofLibrary && tortured == call && callsLeft > 0 && --callsLeft == 0;
    if (now) {
        failed = true;
        // Proves that the test would notice a leak.
        if (getenv("KIVR_SEEDED_FAULT") != nullptr) {
            dup(STDERR_FILENO);
        }
    }
    return now;
}

template <class Result>
Result failure(int error) {
    errno = error;
    return -1;
}

}  // namespace

OnBehalfOf::OnBehalfOf(bool library) : before(ofLibrary) { ofLibrary = library; }

OnBehalfOf::~OnBehalfOf() { ofLibrary = before; }

Torture::Torture(Call call, int nth) {
    tortured = call;
    failed = false;
    callsLeft = nth;
    tortures = true;
}

Torture::~Torture() {
    callsLeft = 0;
    tortures = false;
}

bool Torture::struck() const { return failed; }

}  // namespace kiv::test

using kiv::test::Call;
using kiv::test::fails;
using kiv::test::failure;
using kiv::test::OnBehalfOf;
using kiv::test::tortures;

#define INTERPOSED(type, name, parameters, arguments, ...) \
    type __real_##name parameters;                         \
    type __wrap_##name parameters {                        \
        __VA_ARGS__;                                       \
        return __real_##name arguments;                    \
    }
#define FAILING(type, name, call, error, parameters, arguments) \
    INTERPOSED(type, name, parameters, arguments,               \
               if (fails(Call::call)) return failure<type>(error))
#define MODEM(name, parameters, arguments) \
    INTERPOSED(int, rav_client_##name, parameters, arguments, const OnBehalfOf modem(false))

extern "C" {
FAILING(int, eventfd, EventFd, EMFILE, (unsigned count, int flags), (count, flags))
FAILING(int, epoll_create1, EpollCreate, EMFILE, (int flags), (flags))
FAILING(int, epoll_ctl, EpollControl, ENOMEM, (int epoll, int what, int fd, epoll_event* event),
        (epoll, what, fd, event))
FAILING(ssize_t, read, Read, EIO, (int fd, void* to, size_t size), (fd, to, size))
FAILING(ssize_t, write, Write, EIO, (int fd, const void* from, size_t size), (fd, from, size))
INTERPOSED(int, epoll_wait, (int epoll, epoll_event* events, int size, int timeout),
           (epoll, events, size, timeout), kiv::test::ofLibrary = true;
           if (fails(Call::EpollWait)) return failure<int>(EINTR))
// std::thread's start, whose second argument is passed by its address.
INTERPOSED(void,
           _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE,
           (void* thread, void* state, void (*depend)()), (thread, state, depend),
           if (fails(Call::Thread)) throw std::system_error(EAGAIN, std::generic_category()))

MODEM(notifier_init,
      (rav_service_object_type service, rav_client_os_params* params, rav_client_type* notifier),
      (service, params, notifier))
MODEM(register_notify_cb, (rav_client_type notifier, rav_client_notify_cb callback, void* data),
      (notifier, callback, data))
MODEM(get_any_service, (rav_service_object_type service, rav_service_info* info), (service, info))
MODEM(register_error_cb, (rav_client_type client, rav_client_error_cb callback, void* data),
      (client, callback, data))
MODEM(send_msg_sync,
      (rav_client_type client, unsigned id, const void* request, unsigned size, void* response,
       unsigned room, unsigned timeout),
      (client, id, request, size, response, room, timeout))
MODEM(message_decode,
      (rav_client_type client, int kind, unsigned id, const void* from, unsigned size, void* to,
       unsigned room),
      (client, kind, id, from, size, to, room))
MODEM(release, (rav_client_type client), (client))

int __real_rav_client_init(const rav_service_info*, rav_service_object_type, rav_client_ind_cb,
                           void*, rav_client_os_params*, rav_client_type*);
int __wrap_rav_client_init(const rav_service_info* info, rav_service_object_type service,
                           rav_client_ind_cb callback, void* data, rav_client_os_params* params,
                           rav_client_type* client) {
    const OnBehalfOf modem(false);
    static rav_client_ind_cb ofLibrary = nullptr;
    ofLibrary = callback;
    const auto trampoline = [](rav_client_type from, unsigned id, void* bytes, unsigned size,
                               void* receiver) {
        const OnBehalfOf library(true);
        ofLibrary(from, id, bytes, size, receiver);
    };
    return __real_rav_client_init(info, service, trampoline, data, params, client);
}
}

void* operator new(size_t size) {
    const bool fail = fails(Call::Memory) || (tortures && fails(Call::MemoryOfThisThread));
    void* const memory = fail ? nullptr : malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { free(memory); }
