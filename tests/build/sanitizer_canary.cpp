// Leaks, and races; see CMakeLists.txt.

#include <thread>

namespace {
int* volatile leaked = nullptr;
volatile int raced = 0;
}  // namespace

int main() {
    leaked = new int(1);
    leaked = nullptr;
    std::thread other([] { raced = 1; });
    raced = 2;
    other.join();
}
