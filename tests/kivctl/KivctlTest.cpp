#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "ModemEmulator.h"
#include "Provisioning.h"

namespace kiv::kivctl {
namespace {

using emulator::Fault;
using emulator::ModemEmulator;
using testing::AllOf;
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

Result provision(const char* file, const char* sim, const char* more = "--format=tsv") {
    return run({"provision", "--apns", dataFile(file).c_str(), "--sim", sim, more});
}

TEST(KivctlTest, provisionTellsWhatEachStepTookAndWhy) {
    const Result full = provision("carriers.xml", "00101");
    EXPECT_EQ(full.status, kOk) << full.err << full.out;
    EXPECT_EQ(full.err, "");
    for (const char* line : {
             "step\t00101\tFull attach\tattach\texisting, changed\t3GPP 2\tims\t7\t"
             "first of type ia, by PLMN 00101",
             "step\t00101\tFull\tdefault\tcreated\t3GPP 3\tInternet.Example\t4\t"
             "first of type default, by PLMN 00101",
             "step\t00101\tFull SOS\temergency\tcreated\t3GPP 4\tsos\t10\t"
             "first of type emergency, by PLMN 00101",
             "step\t00101\t-\ttypes\texisting, changed\t3GPP 3\t-\t-\ttypes of 4 entries",
             "total\t1\t4\t2\t0",
         }) {
        EXPECT_THAT(full.out, HasSubstr("\n" + std::string(line) + "\n"));
    }
    EXPECT_THAT(full.out, AllOf(HasSubstr("\nafter\t3GPP 3\tno\t"), HasSubstr("\t***\t")));
    EXPECT_THAT(provision("carriers.xml", "001002").out,
                HasSubstr("\nstep\t001002\t-\tattach\tskipped\t-\t-\t-\t"
                          "none of type ia; none of type default\n"));
    const Result all = run({"provision", "--apns", dataFile("carriers.xml").c_str(), "--all",
                            "--format=json", "--fields=operator,result,operators,mismatches"});
    EXPECT_THAT(all.out, StartsWith(R"({"schema":1,"report":"step","operator":"00101",)"
                                    R"("result":"existing, changed"})"
                                    "\n"));
    EXPECT_THAT(all.out,
                HasSubstr(R"({"schema":1,"report":"total","operators":3,"mismatches":0})"));
}

TEST(KivctlTest, passwordsAreHiddenUnlessAskedFor) {
    for (const char* format : {"--format=tsv", "--format=table", "--format=json"}) {
        const Result hidden = provision("carriers.xml", "00101", format);
        EXPECT_THAT(hidden.out, AllOf(HasSubstr("***"), Not(HasSubstr("s3cret"))));
    }
    EXPECT_THAT(provision("carriers.xml", "00101", "--show-secrets").out,
                AllOf(HasSubstr("s3cret"), Not(HasSubstr("***"))));
}

TEST(KivctlTest, statusAndMessageTellWhatWentWrong) {
    const std::string good = dataFile("carriers.xml");
    const std::string flawed = dataFile("flawed.xml");
    const char* const apns = good.c_str();
    const struct {
        std::vector<const char*> arguments;
        int status;
        std::string message;
    } cases[] = {
        {{"provision", "--apns", flawed.c_str(), "--plmn", "00101"},
         kUnreadableEntries,
         flawed + ":3: type: 'gold' is not an APN type; entry left out"},
        {{"provision", "--apns", apns, "--plmn", "26201"},
         kFailed,
         good + ": no entry serves SIM 26201"},
        {{"provision", "--apns", flawed.c_str(), "--plmn", "00103"},
         kFailed,
         flawed + ": no entry serves SIM 00103; try --sim '00103,gid=a'"},
        {{"provision", "--apns", "/none.xml", "--all"},
         kCannotRead,
         "/none.xml: No such file or directory"},
        {{"list", "--log", "/nonexistent/log"},
         kCannotWrite,
         "/nonexistent/log: No such file or directory"},
        {{"provision", "--apns", apns, "--plmn", "26x01"},
         kUsage,
         "--plmn: not 5 or 6 digits (MCC and MNC); see kivctl provision --help"},
        {{"provision", "--apns", apns, "--plmn", "26201", "--all"},
         kUsage,
         "--plmn excludes --all; see kivctl provision --help"},
        {{"provision", "--apns", apns},
         kUsage,
         "provision: whom to serve? give --plmn, --sim or --all"},
        {{"provision", "--apns", apns, "--jornal", "x"},
         kUsage,
         "no option '--jornal'; did you mean --journal?"},
        {{"lst"}, kUsage, "no command 'lst'; did you mean list?"},
        {{"zebra"}, kUsage, "no command 'zebra'; see kivctl --help"},
        {{}, kUsage, "no command given; see kivctl --help"},
        {{"list", "--fields", "profile,aPn"},
         kUsage,
         "--fields: no field 'aPn'; did you mean apn?"},
        {{"provision", "--apns", apns, "--all", "--journal", apns},
         kUsage,
         "--apns and --journal name the same file, '" + good.substr(0, 40)},
        {{"provision", "--apns", apns, "--all", "--journal", "/x/y", "--log", "/x/../x/y"},
         kUsage,
         "--journal and --log name the same file, '/x/../x/y'"},
    };
    for (const auto& one : cases) {
        const Result result = run(one.arguments);
        EXPECT_EQ(result.status, one.status) << testing::PrintToString(one.arguments);
        EXPECT_THAT(result.err, StartsWith("kivctl: " + one.message))
            << testing::PrintToString(one.arguments);
    }
}

TEST(KivctlTest, checkListsAllFlawsWithTheirPlaceAndCost) {
    const Result result = run({"check", dataFile("flawed.xml").c_str(), "--format=tsv"});
    EXPECT_EQ(result.status, kUnreadableEntries);
    EXPECT_EQ(result.out,
              "#flaw\tline\tcolumn\tseverity\toperator\tflaw\tremedy\n"
              "flaw\t3\t5\terror\t00101\ttype: 'gold' is not an APN type\tentry left out\n"
              "flaw\t4\t5\twarning\t00101\tthe same as the entry of line 2\tthe first one serves\n"
              "flaw\t5\t5\tnote\t00102\tcarrier_enabled is false\tnever serves\n"
              "flaw\t6\t5\twarning\t00103,gid=a\ttype: 'gold' is not an APN type\t"
              "what is unknown is dropped, the rest is kept\n"
              "flaw\t6\t5\tnote\t00103,gid=a\tno apn\tthe network chooses\n"
              "flaw\t5\t5\twarning\t00102\tthe operator has no entry for data\t"
              "the step is skipped\n"
              "flaw\t5\t5\twarning\t00102\tthe operator has no entry for attach\t"
              "the step is skipped\n"
              "#total\toperators\tentries\terrors\twarnings\tnotes\n"
              "total\t3\t5\t1\t4\t2\n");
}

TEST(KivctlTest, outputErrorsAreTold) {
    const Result full = run({"list"}, std::fopen("/dev/full", "w"));
    EXPECT_EQ(full.status, kCannotWrite);
    EXPECT_EQ(full.err, "kivctl: standard output: No space left on device\n");
}

/// The mismatches of one operator of carriers.xml on a modem with those faults.
std::vector<std::string> mismatchesOf(const char* plmn, const std::vector<Fault>& faults) {
    Session session(SessionOptions{});
    session.open();
    for (const Fault& fault : faults) {
        ModemEmulator::getInstance().addFault(fault);
    }
    const ApnFile file = readApnFile(dataFile("carriers.xml"));
    const Sim sim = parseSim(plmn);
    const auto candidates = candidatesFor(file, sim);
    Output output(stderr, stderr);
    CacheReader cache;
    Provisioner provisioner(session, sim, candidates, 0, cache, output);
    std::vector<std::string> texts;
    for (const Mismatch& one : provisioner.run(false).mismatches) {
        texts.push_back(one.step + " " + one.check + " " + one.profile + " " + one.setting + " " +
                        one.expected.dump() + " " + one.found.dump());
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
    EXPECT_THAT(mismatchesOf("00101", {}), ElementsAre());
    EXPECT_THAT(mismatchesOf("00101", {change}),
                ElementsAre(R"(attach asked 3GPP 2 types "ia" "ims")",
                            R"(attach asked 3GPP 2 user "attach" null)",
                            R"(attach asked 3GPP 2 password "s3cret" null)"));
    EXPECT_THAT(mismatchesOf("00101", {secondNew, deletion}),
                ElementsAre(R"(emergency asked  profile "a profile" null)",
                            R"(release others 3GPP 3 profile null "present")"));

    // The modem changes what it holds behind the back of the library.
    emulator::Action disable{.kind = emulator::Action::Kind::ModifyProfile, .index = 3};
    disable.settings.apn_disabled_valid = disable.settings.apn_disabled = 1;
    disabling.consequences = {{emulator::Moment::BeforeReply, disable}};
    disabling.indications = emulator::IndicationFault::Withheld;
    EXPECT_THAT(mismatchesOf("00101", {disabling}),
                testing::Contains(HasSubstr("3GPP 3 disabled")));
    emulator::Action clat{.kind = emulator::Action::Kind::ModifyProfile, .index = 1};
    clat.settings.clat_enabled_valid = clat.settings.clat_enabled = 1;
    disabling.consequences = {{emulator::Moment::BeforeReply, clat}};
    EXPECT_THAT(mismatchesOf("00103", {disabling}), testing::Contains(HasSubstr("3GPP 1 clat")));
}

}  // namespace
}  // namespace kiv::kivctl
