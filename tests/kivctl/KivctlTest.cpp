#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "ModemEmulator.h"

namespace kiv::kivctl {
namespace {

using emulator::Fault;
using emulator::ModemEmulator;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using FilePointer = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

FilePointer opened(std::FILE* file) {
    EXPECT_NE(file, nullptr);
    return {file, std::fclose};
}

std::string contentsOf(std::FILE* file) {
    std::rewind(file);
    std::string text(65536, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    return text;
}

std::string dataFile(const char* name) { return std::filesystem::path(KIVCTL_TEST_DATA) / name; }

struct Result {
    int status;
    std::string out;
    std::string err;
};

Result run(std::vector<const char*> arguments, std::FILE* standardOutput = std::tmpfile()) {
    const FilePointer out = opened(standardOutput);
    const FilePointer err = opened(std::tmpfile());
    Output output(out.get(), err.get());
    arguments.insert(arguments.begin(), "kivctl");
    const int status = runKivctl(static_cast<int>(arguments.size()), arguments.data(), output);
    return {status, contentsOf(out.get()), contentsOf(err.get())};
}

Result provision(const char* file, const char* plmn, const char* more = "--format=tsv") {
    return run({"provision", "--apns", dataFile(file).c_str(), "--plmn", plmn, more});
}

TEST(KivctlTest, provisionTellsWhatEachStepTook) {
    const Result full = provision("carriers.xml", "00101");
    EXPECT_EQ(full.status, kOk) << full.err << full.out;
    EXPECT_EQ(full.err, "");
    for (const char* line : {
             "step\tattach\texisting, changed\t3GPP 2\tims\t7",
             "step\temergency\tcreated\t3GPP 4\tsos\t10",
             "step\ttypes\texisting, changed\t3GPP 3\t-\t-",
             "summary\tAPNs\t4\nsummary\tprofiles made\t2",
             "after\t3GPP 3\tno\tkiv_profile\tIPV4V6\tIP\tIPV6\tIPV6\tinternet.example\t"
             "default,mms,supl\tIP\tIPV6\tPAP/CHAP\tme\t***\t-\tyes\t-\t-\t20\t300\t5\tyes",
         }) {
        EXPECT_THAT(full.out, HasSubstr("\n" + std::string(line) + "\n"));
    }
    EXPECT_THAT(provision("carriers.xml", "001002").out,
                HasSubstr("\nstep\tattach\tskipped: no entry of type ia or default\t"));
    EXPECT_EQ(run({"provision", "--apns", dataFile("carriers.xml").c_str(), "--all"}).out,
              "operators: 4, APNs: 7, profiles made: 6, mismatches: 0\n");
}

TEST(KivctlTest, passwordsAreHiddenUnlessAskedFor) {
    for (const char* format : {"--format=tsv", "--format=table"}) {
        const Result hidden = provision("carriers.xml", "00101", format);
        EXPECT_THAT(hidden.out, AllOf(HasSubstr("***"), Not(HasSubstr("s3cret"))));
    }
    EXPECT_THAT(provision("carriers.xml", "00101", "--show-secrets").out,
                AllOf(HasSubstr("s3cret"), Not(HasSubstr("***"))));
}

TEST(KivctlTest, statusTellsWhatWentWrong) {
    const std::string good = dataFile("carriers.xml");
    const struct {
        const char* file;
        const char* plmn;
        int status;
        std::string message;
    } cases[] = {
        {"flawed.xml", "00101", kUnreadableEntries, ":3: unknown APN type 'gold'"},
        {"carriers.xml", "26201", kFailed, ": no readable entry of operator 26201"},
        {"none.xml", "26201", kCannotRead, ": No such file or directory"},
    };
    for (const auto& one : cases) {
        const Result result = provision(one.file, one.plmn);
        EXPECT_EQ(result.status, one.status);
        EXPECT_EQ(result.err, "kivctl: " + dataFile(one.file) + one.message + "\n");
    }
    EXPECT_EQ(run({"list", "--log", "/nonexistent/log"}).status, kCannotWrite);
    const std::vector<const char*> wrong[] = {
        {"provision", "--apns", good.c_str(), "--plmn", "2620x"},
        {"provision", "--apns", good.c_str(), "--plmn", "26201", "--all"},
    };
    for (const auto& arguments : wrong) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, kUsage) << testing::PrintToString(arguments);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("kivctl: "));
    }
}

TEST(KivctlTest, stateLivesFromRunToRun) {
    const std::string state = testing::TempDir() + std::to_string(getpid()) + "kivctl-state.json";
    const std::string option = "--state=" + state;
    const Result first = provision("carriers.xml", "00101", option.c_str());
    EXPECT_EQ(first.status, kOk) << first.err << first.out;
    const Result second = provision("carriers.xml", "00101", option.c_str());
    EXPECT_EQ(second.status, kOk) << second.err << second.out;
    EXPECT_THAT(second.out, HasSubstr("existing, unchanged")) << "the attach profile is as it was";
    EXPECT_THAT(run({"list", "--format=tsv", option.c_str()}).out,
                HasSubstr("\nprofile\t3GPP 2\tims\tia\tIPV4V6\t-\t-\tattach\t"));

    std::filesystem::resize_file(state, 1);
    const Result damaged = run({"list", option.c_str()});
    EXPECT_EQ(damaged.status, kCannotRead);
    EXPECT_THAT(damaged.err, StartsWith("kivctl: " + state + ":1:"));
    std::filesystem::remove(state);
    EXPECT_EQ(run({"list", "--state", "/nonexistent/state"}).status, kCannotWrite);
}

TEST(KivctlTest, outputErrorsAreTold) {
    const Result full = run({"list"}, std::fopen("/dev/full", "w"));
    EXPECT_EQ(full.status, kCannotWrite);
    EXPECT_EQ(full.err, "kivctl: standard output: No space left on device\n");
}

/// The mismatches of one operator of carriers.xml on a modem with those faults.
std::vector<std::string> mismatchesOf(const char* plmn, const std::vector<Fault>& faults) {
    Session session(0);
    session.resetModem();
    for (const Fault& fault : faults) {
        ModemEmulator::getInstance().addFault(fault);
    }
    session.powerOn();
    const ApnFile file = readApnFile(dataFile("carriers.xml"));
    const auto mismatches = Provisioner(session, *file.find(plmn)).run().mismatches;
    EXPECT_THAT(mismatchText(mismatches, {}), Not(HasSubstr("s3cret")));
    std::vector<std::string> texts;
    for (const Mismatch& one : mismatches) {
        texts.push_back(one.step + " " + one.holder + " " + one.setting + " " + cell(one.asked) +
                        " " + cell(one.held));
    }
    return texts;
}

TEST(MismatchTest, faultOfTheModemIsNoticed) {
    Fault change, secondNew, deletion, disabling;
    change.messageId = RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01;
    secondNew.messageId = disabling.messageId = RAV_WDS_CREATE_PROFILE_REQ_V01;
    secondNew.nth = 2;
    deletion.messageId = RAV_WDS_DELETE_PROFILE_REQ_V01;
    change.error = secondNew.error = deletion.error = WDS_ERR_INTERNAL_V01;
    EXPECT_THAT(mismatchesOf("00101", {change}),
                ElementsAre("attach modem types ia ims", "attach modem user attach -",
                            "attach modem password s3cret -", "attach library types ia ims",
                            "attach library user attach -", "attach library password s3cret -"));
    EXPECT_THAT(
        mismatchesOf("00101", {secondNew, deletion}),
        ElementsAre("emergency library profile a new profile -", "release modem profile - present",
                    "release library profiles 3 4", "release library profile - present"));

    emulator::Action disable{.kind = emulator::Action::Kind::ModifyProfile, .index = 3};
    disable.settings.apn_disabled_valid = disable.settings.apn_disabled = 1;
    disabling.consequences = {{emulator::Moment::BeforeReply, disable}};
    EXPECT_THAT(mismatchesOf("00101", {disabling}), Contains("default modem disabled - yes"));
}

}  // namespace
}  // namespace kiv::kivctl
