#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace kiv::kivctl {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kApns = std::string(KIVCTL_TEST_DATA) + "/carriers.xml";

std::string contentsOf(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

unsigned modeOf(const fs::path& path) {
    return static_cast<unsigned>(fs::status(path).permissions());
}

/// The tool as a process of its own, in a folder that goes with the test.
class BinaryTest : public testing::Test {
protected:
    BinaryTest() {
        std::string name = testing::TempDir() + "kivctlXXXXXX";
        folder = mkdtemp(name.data());
        fs::current_path(folder);
    }
    ~BinaryTest() override {
        fs::permissions(folder, fs::perms::owner_all);
        fs::current_path(before);
        fs::remove_all(folder);
    }

    /// Output and messages go to the files "out" and "err", or to the terminal.
    static pid_t start(std::vector<std::string> arguments, int terminal = -1) {
        arguments.insert(arguments.begin(), KIVCTL_BINARY);
        std::vector<char*> argv;
        for (std::string& one : arguments) {
            argv.push_back(one.data());
        }
        argv.push_back(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            const int flags = O_WRONLY | O_CREAT | O_TRUNC;
            dup2(terminal < 0 ? open("out", flags, 0600) : terminal, STDOUT_FILENO);
            dup2(terminal < 0 ? open("err", flags, 0600) : terminal, STDERR_FILENO);
            execv(argv[0], argv.data());
            _exit(126);
        }
        return child;
    }
    static int statusOf(pid_t child) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    static int run(const std::vector<std::string>& arguments) { return statusOf(start(arguments)); }
    static int provision(std::vector<std::string> more) {
        more.insert(more.begin(), {"provision", "--apns", kApns, "--plmn", "00101"});
        return run(more);
    }
    /// What the tool writes to a terminal of so many columns.
    static std::string onTerminal(const std::vector<std::string>& arguments,
                                  unsigned short columns) {
        winsize size{};
        size.ws_col = columns;
        int own = -1, other = -1;
        EXPECT_EQ(openpty(&own, &other, nullptr, nullptr, &size), 0);
        const pid_t child = start(arguments, other);
        close(other);
        std::string text;
        char buffer[4096];
        for (ssize_t count; (count = read(own, buffer, sizeof buffer)) > 0;) {
            text.append(buffer, static_cast<size_t>(count));
        }
        close(own);
        EXPECT_EQ(statusOf(child), 0);
        return text;
    }

    const fs::path before = fs::current_path();
    fs::path folder;
};

TEST_F(BinaryTest, StateLivesFromRunToRunAndLinksStay) {
    fs::create_symlink("real", "state");
    ASSERT_EQ(provision({"--state", "state"}), 0) << contentsOf("err");
    EXPECT_TRUE(fs::is_symlink("state"));
    EXPECT_EQ(modeOf("real"), 0600U);
    ASSERT_EQ(provision({"--state", "state", "--format", "tsv"}), 0) << contentsOf("err");
    EXPECT_THAT(contentsOf("out"), HasSubstr("\tattach\texisting, unchanged\t"));
    EXPECT_FALSE(fs::exists("real.lock"));

    // What only reads changes nothing.
    fs::permissions("real", fs::perms::owner_read | fs::perms::others_read);
    fs::permissions(".", fs::perms::owner_read | fs::perms::owner_exec);
    const auto written = fs::last_write_time("real");
    const std::string state = folder / "state";
    const int status = std::system(("'" KIVCTL_BINARY "' list --state " + state +
                                    " --format tsv | "
                                    "grep -q 'profile.3GPP 2.ims.ia.*attach'")
                                       .c_str());
    EXPECT_EQ(status, 0);
    EXPECT_EQ(fs::last_write_time("real"), written);
    EXPECT_EQ(modeOf("real"), 0404U);
    fs::permissions(".", fs::perms::owner_all);

    fs::permissions("real", fs::perms::owner_all);
    fs::resize_file("real", 1);
    EXPECT_EQ(provision({"--state", "state"}), 4);
    EXPECT_THAT(contentsOf("err"), HasSubstr("kivctl: "));
}

TEST_F(BinaryTest, SecondRunWaitsASecondAndSaysWhoHoldsTheState) {
    ASSERT_EQ(mkfifo("apns", 0600), 0);
    // The first run holds the state and then waits for the journal's reader.
    ASSERT_EQ(mkfifo("journal", 0600), 0);
    const pid_t first = start(
        {"provision", "--apns", kApns, "--plmn", "00101", "--state", "s", "--journal", "journal"});
    while (!fs::exists("s.lock")) {
        std::this_thread::yield();
    }
    EXPECT_EQ(run({"provision", "--apns", kApns, "--plmn", "00101", "--state", "s"}), 4);
    EXPECT_THAT(contentsOf("err"), HasSubstr("s: in use by process " + std::to_string(first) +
                                             " (kivctl); try again when it has ended\n"));
    const std::string written = contentsOf("journal");
    EXPECT_EQ(statusOf(first), 0);
    EXPECT_THAT(written, HasSubstr(R"("what":"operator 00101")"));
    EXPECT_FALSE(fs::exists("s.lock"));
}

TEST_F(BinaryTest, SecretsAreForTheOwnerAlone) {
    for (const char* name : {"journal", "log", "state"}) {
        std::ofstream(name).close();
        fs::permissions(name, static_cast<fs::perms>(0644));
    }
    fs::remove("state");
    fs::create_hard_link("journal", "other");
    EXPECT_EQ(provision({"--journal", "journal", "--log", "other"}), 2);
    EXPECT_THAT(contentsOf("err"), HasSubstr("--journal and --log name the same file"));
    ASSERT_EQ(provision({"--journal", "journal", "--log", "log", "--state", "state"}), 0);
    for (const char* name : {"journal", "log", "state"}) {
        EXPECT_EQ(modeOf(name), 0600U) << name;
    }
    EXPECT_THAT(contentsOf("journal"), Not(HasSubstr("s3cret")));
    std::ofstream("state") << R"({"format": "s3cret)";
    EXPECT_EQ(run({"list", "--state", "state"}), 4);
    EXPECT_THAT(contentsOf("err"), AllOf(HasSubstr("state:1:"), Not(HasSubstr("s3cret"))));
    const std::string faulty =
        R"({"events": [{"atMs": 1, "do": "createProfile", "password": "s3cret)";
    std::ofstream("scenario") << faulty;
    EXPECT_EQ(provision({"--scenario", "scenario"}), 4);
    EXPECT_THAT(contentsOf("err"), AllOf(HasSubstr("scenario:1:"), Not(HasSubstr("s3cret"))));
}

TEST_F(BinaryTest, SignalEndsARunInOrder) {
    const std::pair<int, int> kSignals[] = {{SIGINT, 130}, {SIGTERM, 143}};
    for (const auto& [number, status] : kSignals) {
        // 30,000 operators, of which some have been served when the signal comes.
        std::ofstream file("many.xml");
        file << "<apns>";
        for (int i = 10000; i < 40000; ++i) {
            file << "<apn apn='a' carrier_id='" << i << "'/>";
        }
        file << "</apns>";
        file.close();
        const pid_t child = start({"provision", "--apns", "many.xml", "--all", "--journal", "j"});
        while (!fs::exists("j") || fs::file_size("j") == 0) {
            std::this_thread::yield();
        }
        const auto begin = std::chrono::steady_clock::now();
        kill(child, number);
        EXPECT_EQ(statusOf(child), status);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
        const std::string journal = contentsOf("j");
        EXPECT_EQ(journal.back(), '\n');
        EXPECT_EQ(contentsOf("err"),
                  number == SIGINT ? "kivctl: interrupted\n" : "kivctl: terminated\n");
        fs::remove("j");
    }
}

TEST_F(BinaryTest, TablesFitTheTerminal) {
    const std::vector<std::string> arguments = {"provision", "--apns", kApns, "--plmn", "00101"};
    for (const unsigned short columns : {200, 100, 60, 37}) {
        std::istringstream text(onTerminal(arguments, columns));
        for (std::string line; std::getline(text, line);) {
            for (size_t begin; (begin = line.find('\x1b')) != line.npos;) {
                line.erase(begin, line.find('m', begin) - begin + 1);
            }
            line.erase(line.find_last_not_of('\r') + 1);
            EXPECT_LE(line.size(), columns) << line;
        }
    }
    EXPECT_THAT(onTerminal({"list"}, 100), HasSubstr("\x1b[1m"));
    setenv("NO_COLOR", "1", 1);
    EXPECT_THAT(onTerminal({"list"}, 100), Not(HasSubstr("\x1b")));
    unsetenv("NO_COLOR");
    ASSERT_EQ(run({"list"}), 0);
    EXPECT_THAT(contentsOf("out"), Not(HasSubstr("\x1b")));
}

TEST_F(BinaryTest, ScenarioTellsWhichFaultsStruck) {
    std::ofstream("some")
        << R"({"faults": [{"request": "create", "nth": 99}, {"request": "bind"}]})";
    EXPECT_EQ(provision({"--scenario", "some", "--format", "tsv"}), 0);
    EXPECT_THAT(contentsOf("out"), HasSubstr("fault\tfaults[0]\t0\nfault\tfaults[1]\t1\n"));
    std::ofstream("none") << R"({"faults": [{"request": "create", "nth": 99}]})";
    EXPECT_EQ(provision({"--scenario", "none"}), 7);
    EXPECT_THAT(contentsOf("err"), HasSubstr("none: none of its faults struck"));
}

TEST_F(BinaryTest, LargeFilesTakeTimeInProportion) {
    const auto timeOf = [&](int entries) {
        std::ofstream file("large.xml");
        file << "<apns>";
        for (int i = 0; i < entries; ++i) {
            file << "<apn mcc='262' mnc='01' apn='apn" << i << "' type='default,supl'/>\n";
        }
        file << "</apns>";
        file.close();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(run({"provision", "--apns", "large.xml", "--plmn", "26201"}), 0);
        return std::chrono::steady_clock::now() - begin;
    };
    const auto small = timeOf(2000);
    // Ten times the entries; quadratic would be a hundred times the time.
    EXPECT_LT(timeOf(20000), 50 * small);
}

}  // namespace
}  // namespace kiv::kivctl
