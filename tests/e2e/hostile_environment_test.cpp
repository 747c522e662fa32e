// The command line under hostile conditions: interrupts, runs that would land
// on their own inputs, concurrent runs into one folder, bytes that are not
// UTF-8, long names, a strict umask, header lies, pipes named like recordings
// and a log that cannot be written.
// Each case checks what is on disk after.

#include <sys/stat.h>

#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/common/file_output.h"
#include "core/common/text.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::runCommand;

std::string quoted(const fs::path& p) {
    std::string out = "'";
    for (char c : p.string()) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

// The CLI with its settings kept in `dir`, never the user's.
std::string cli(const testing::TempDir& dir) {
    return "NORVANE_SETTINGS=" + quoted(dir / "settings.json") + " " + quoted(testing::cliPath());
}

// Runs `command`, which must succeed (exit 0).
testing::CommandResult succeeds(const std::string& command) {
    testing::CommandResult result = runCommand(command);
    EXPECT_EQ(result.exitCode, 0) << command << "\n" << result.err;
    return result;
}

// `seconds` of 25 fps LTC from 10:00:00:00, written by the command line itself.
void genLTC(const testing::TempDir& dir, const fs::path& path, int seconds = 1) {
    succeeds(cli(dir) + " gen-ltc -o " + quoted(path) + " --start 10:00:00:00 --fps 25 --seconds " +
             std::to_string(seconds));
}

// "stamp FILES... LTC --ltc LTC --fps 25 ARGS".
std::string stampCommand(const testing::TempDir& dir, const std::vector<fs::path>& files,
                         const fs::path& ltc, const std::string& args) {
    std::string command = cli(dir) + " stamp";
    for (const fs::path& file : files) {
        command += " " + quoted(file);
    }
    return command + " " + quoted(ltc) + " --ltc " + quoted(ltc) + " --fps 25 " + args;
}

// Every file under `root` (hidden ones too) with its bytes.
std::map<std::string, ByteBuffer> snapshot(const fs::path& root) {
    std::map<std::string, ByteBuffer> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file()) {
            files[fs::relative(entry.path(), root).string()] = readWholeFile(entry.path());
        }
    }
    return files;
}

// `folder`, made with its parents.
fs::path made(const fs::path& folder) {
    fs::create_directories(folder);
    return folder;
}

std::set<std::string> names(const fs::path& folder) {
    std::set<std::string> out;
    for (const auto& entry : fs::directory_iterator(folder)) {
        out.insert(entry.path().filename().string());
    }
    return out;
}

// A 24-bit zero-audio WAV of `channels` x `frames`, written sparse: only the
// header takes disk space, the data reads back as zeros. (The RIFF size is
// left short; readers walk the file's real length.)
void writeSparseWav(const fs::path& path, int channels, std::int64_t frames) {
    testing::WavRecipe recipe;
    recipe.channels = static_cast<std::uint16_t>(channels);
    recipe.bits = 24;
    recipe.dataDeclaredSize = static_cast<std::uint32_t>(frames * channels * 3);
    testing::writeBytes(path, testing::makeWav(recipe));
    fs::resize_file(path, fs::file_size(path) + *recipe.dataDeclaredSize);
}

ByteBuffer smallPoly(int channels, std::int64_t frames = 480) {
    testing::WavRecipe recipe;
    recipe.channels = static_cast<std::uint16_t>(channels);
    recipe.frames = frames;
    return testing::makeWav(recipe);
}

// Stamps s1/boom.wav and s2/boom.wav (1000 and 2000 frames, one target name)
// from a second of LTC into dir/st under `collision`.
testing::CommandResult stampTwoBooms(const testing::TempDir& dir, const std::string& collision) {
    genLTC(dir, made(dir / "s1") / "ltc.wav");
    testing::writeBytes(dir / "s1/boom.wav", smallPoly(1, 1000));
    testing::writeBytes(made(dir / "s2") / "boom.wav", smallPoly(1, 2000));
    return runCommand(
        stampCommand(dir, {dir / "s1/boom.wav", dir / "s2/boom.wav"}, dir / "s1/ltc.wav",
                     "--json --collision " + collision + " -o " + quoted(dir / "st")));
}

// Starts `command` in the background, waits until a hidden temporary file
// appears in `watched` (the run is writing), sends `signal`, and prints the
// command's exit status.
std::string interruptScript(const std::string& command, const fs::path& watched,
                            const std::string& signal) {
    // (The stale temporary planted below has "Stale" in its name.)
    return "( " + command + " & pid=$!; i=0; while [ $i -lt 3000 ] && ! ls -A " + quoted(watched) +
           " 2>/dev/null | grep -v Stale | grep -q norvane-; do sleep 0.005; i=$((i+1)); done; "
           "kill -" +
           signal + " $pid; wait $pid; echo \"exit=$?\" )";
}

// Ctrl-C, SIGTERM and SIGHUP stop stamp, split and gen-ltc through their
// cancellation: the message, 128 + the signal's number, no temporary file,
// no output of the job cut short, the inputs untouched.
TEST(HostileEnvironmentTest, SignalsCancelRunsAndLeaveNothingBehind) {
    testing::TempDir dir;
    const fs::path in = made(dir / "in");
    genLTC(dir, in / "ltc.wav", 2);
    for (const char* name : {"A.wav", "B.wav", "C.wav"}) {
        writeSparseWav(in / name, 2, 48000 * 40);  // 11.5 MB each
    }
    // Long enough that the one-pass split is still writing when the signal lands
    // (a sparse input: the test writes only what the split writes before it stops).
    writeSparseWav(in / "poly.wav", 8, 48000 * 120);  // 8 x 17 MB
    // The inputs are large: their size and modification time stand for them.
    const auto stamps = [&] {
        std::map<std::string, std::pair<std::uintmax_t, fs::file_time_type>> out;
        for (const auto& entry : fs::directory_iterator(in)) {
            out[entry.path().filename().string()] = {entry.file_size(), entry.last_write_time()};
        }
        return out;
    };
    const auto before = stamps();

    // A stale temporary of a run killed earlier is swept by the next run.
    const fs::path splitOut = made(dir / "split");
    testing::writeBytes(splitOut / ".poly_CH01.wav.norvane-Stale1", smallPoly(1));
    fs::last_write_time(splitOut / ".poly_CH01.wav.norvane-Stale1",
                        fs::file_time_type::clock::now() - std::chrono::hours(3));

    struct Case {
        std::string command;
        fs::path out;
        std::string signal;
        int exitCode;
        std::string message;
    };
    const fs::path stampOut = made(dir / "stamp");
    const fs::path genOut = made(dir / "gen");
    const std::vector<Case> cases = {
        {stampCommand(dir, {in / "A.wav", in / "B.wav", in / "C.wav"}, in / "ltc.wav",
                      "-o " + quoted(stampOut)),
         stampOut, "INT", 130, "error: Stamp was cancelled."},
        {cli(dir) + " split " + quoted(in / "poly.wav") + " -o " + quoted(splitOut), splitOut,
         "TERM", 143, "error: Split was cancelled."},
        {cli(dir) + " gen-ltc -o " + quoted(genOut / "long.wav") +
             " --start 01:00:00:00 --fps 25 --seconds 900 --channels 2",
         genOut, "HUP", 129, "error: LTC generation was cancelled."},
    };
    for (const Case& c : cases) {
        const auto r = runCommand(interruptScript(c.command, c.out, c.signal));
        EXPECT_THAT(r.out, HasSubstr("exit=" + std::to_string(c.exitCode))) << c.command;
        EXPECT_THAT(r.err, HasSubstr(c.message)) << c.command;
        EXPECT_TRUE(names(c.out).empty())
            << c.command << ": " << ::testing::PrintToString(names(c.out));
    }
    EXPECT_EQ(stamps(), before);
}

// A run never writes over one of its inputs, whatever the collision policy:
// the rebuild into its source's folder under the source's name, a split whose
// input is named like another input's output, a stamp with no suffix into the
// source folder (also through a symbolic link). Nothing at all is written.
TEST(HostileEnvironmentTest, NoRunReplacesItsOwnInput) {
    testing::TempDir dir;
    auto r = succeeds(cli(dir) + " demo " + quoted(dir / "d"));
    const fs::path rb = dir / "d" / "rebuild";
    ASSERT_TRUE(fs::exists(rb / "source_timeline.fcpxml"));
    auto before = snapshot(rb);
    r = runCommand(cli(dir) + " rebuild --source-xml " + quoted(rb / "source_timeline.fcpxml") +
                   " --stereo-mix " + quoted(rb / "stereo_mix.wav") + " --synced " +
                   quoted(rb / "synced") + " -o " + quoted(rb) + " --name source_timeline.fcpxml");
    EXPECT_NE(r.exitCode, 0);
    EXPECT_THAT(r.err, HasSubstr("Output would replace an input file: source_timeline.fcpxml."));
    EXPECT_EQ(snapshot(rb), before);

    const fs::path f2 = made(dir / "f2");
    testing::writeBytes(f2 / "A.wav", smallPoly(4));
    testing::writeBytes(f2 / "A_CH01.wav", smallPoly(2));
    before = snapshot(f2);
    r = runCommand(cli(dir) + " split " + quoted(f2) + " -o " + quoted(f2) + " --overwrite");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_THAT(r.err, HasSubstr("Output would replace an input file: A_CH01.wav."));
    EXPECT_EQ(snapshot(f2), before);

    const fs::path takes = made(dir / "takes");
    genLTC(dir, takes / "ltc.wav");
    testing::writeBytes(takes / "boom.wav", smallPoly(1, 48000));
    fs::create_symlink(takes / "boom.wav", dir / "boom_tc.wav");  // an output name, linked
    before = snapshot(takes);
    for (const std::string& args : {std::string(" --suffix '' -o ") + quoted(takes),
                                    std::string(" -o ") + quoted(dir.path())}) {
        for (const char* collision : {"overwrite", "keep-both", "ask"}) {
            r = runCommand(stampCommand(dir, {takes / "boom.wav"}, takes / "ltc.wav",
                                        std::string("--collision ") + collision + args));
            EXPECT_NE(r.exitCode, 0) << collision << args;
            if (std::string(collision) != "ask") {  // ask stops earlier, on the existing name
                EXPECT_THAT(r.err, HasSubstr("Output would replace an input file: boom"))
                    << collision << args;
            }
            EXPECT_EQ(snapshot(takes), before) << collision << args;
        }
    }
    EXPECT_EQ(names(dir.path()).count("boom_tc.wav"), 1u);
}

// Outputs are unique across a run: A/Take1, B/Take1 and C/Take1 (2) split to
// three sets of files, none replacing another; two targets of one name in a
// stamp run never replace each other, even under overwrite.
TEST(HostileEnvironmentTest, NamesAreUniqueAcrossTheRun) {
    testing::TempDir dir;
    testing::writeBytes(made(dir / "in/A") / "Take1.wav", smallPoly(2, 100));
    testing::writeBytes(made(dir / "in/B") / "Take1.wav", smallPoly(2, 200));
    testing::writeBytes(made(dir / "in/C") / "Take1 (2).wav", smallPoly(2, 300));
    for (const char* flag : {"", " --overwrite"}) {
        const fs::path out = dir / (std::string("out") + (flag[0] ? "-o" : ""));
        auto r = succeeds(cli(dir) + " split --json " + quoted(dir / "in") + " -o " + quoted(out) +
                          flag);
        const auto report = nlohmann::json::parse(r.out);
        EXPECT_EQ(report["outputPaths"].size(), 6u);
        EXPECT_EQ(names(out),
                  (std::set<std::string>{"Take1_CH01.wav", "Take1_CH02.wav", "Take1 (2)_CH01.wav",
                                         "Take1 (2)_CH02.wav", "Take1 (2) (2)_CH01.wav",
                                         "Take1 (2) (2)_CH02.wav"}));
        // Each source's outputs hold its own length (44-byte header + 2 bytes a frame).
        EXPECT_EQ(fs::file_size(out / "Take1 (2) (2)_CH01.wav"), 44u + 600u);
    }

    const auto r = stampTwoBooms(dir, "overwrite");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto report = nlohmann::json::parse(r.out);
    EXPECT_EQ(report["outputFiles"], nlohmann::json({"boom_tc.wav", "boom_tc_2.wav"}));
    EXPECT_NE(fs::file_size(dir / "st/boom_tc.wav"), fs::file_size(dir / "st/boom_tc_2.wav"));
}

// A job that fails removes what it wrote, so the disk, the report and the log
// agree: under ask the second of two same-named targets fails the job.
TEST(HostileEnvironmentTest, AFailedJobLeavesNoOutputs) {
    testing::TempDir dir;
    const auto r = stampTwoBooms(dir, "ask");
    EXPECT_EQ(r.exitCode, 1) << r.err;
    const auto report = nlohmann::json::parse(r.out);
    EXPECT_TRUE(report["outputFiles"].empty());
    const std::set<std::string> left = names(dir / "st");
    ASSERT_EQ(left.size(), 1u);  // the log alone
    EXPECT_THAT(*left.begin(), ::testing::StartsWith("ltc_stamp_log_"));
    EXPECT_THAT(testing::readText(report["csvLogURL"].get<std::string>()),
                HasSubstr("failed,,LTC Cut Detect,cut-detect,,,,,Output file already exists: "
                          "boom_tc.wav"));
}

// Concurrent runs into one folder: keep-both losers take the next number,
// split losers stop with the split's own message, and what is left is whole.
TEST(HostileEnvironmentTest, ConcurrentRunsClaimNamesAtomically) {
    testing::TempDir dir;
    genLTC(dir, dir / "ltc.wav");
    writeSparseWav(dir / "big.wav", 4, 48000 * 20);
    const std::string stamp = stampCommand(dir, {dir / "big.wav"}, dir / "ltc.wav",
                                           "--collision keep-both -o " + quoted(dir / "st"));
    const std::string split =
        cli(dir) + " split " + quoted(dir / "big.wav") + " -o " + quoted(dir / "sp");
    const auto r =
        runCommand("( for i in 1 2 3; do (" + stamp + " >/dev/null 2>&1; echo stamp=$?) & (" +
                   split + " 2>&1 | grep -v Wrote; echo split=$?) & done; wait )");
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '='), 6) << r.out;
    EXPECT_THAT(r.out, ::testing::Not(HasSubstr("stamp=2"))) << r.out;
    EXPECT_THAT(r.out, ::testing::Not(HasSubstr("File exists"))) << r.out;
    std::set<std::string> stamped;
    for (const std::string& name : names(dir / "st")) {
        if (name.rfind("ltc_stamp_log_", 0) != 0) {
            stamped.insert(name);
        }
    }
    EXPECT_EQ(stamped, (std::set<std::string>{"big_tc.wav", "big_tc_2.wav", "big_tc_3.wav"}));
    EXPECT_EQ(names(dir / "sp"), (std::set<std::string>{"big_CH01.wav", "big_CH02.wav",
                                                        "big_CH03.wav", "big_CH04.wav"}));
    for (const std::string& name : names(dir / "sp")) {
        EXPECT_EQ(fs::file_size(dir / "sp" / name), 44u + 48000u * 20u * 3u) << name;
    }
}

// Reports survive bytes that are not UTF-8 and names near NAME_MAX; outputs
// honour the umask; the CSV log is UTF-8 text.
TEST(HostileEnvironmentTest, BadBytesLongNamesAndUmask) {
    testing::TempDir dir;
    const fs::path in = made(dir / "in");
    testing::writeBytes(in / "bad\xff\xfe.wav", smallPoly(2));
    const std::string longName = std::string(236, 'L') + ".wav";  // outputs of 245 bytes
    testing::writeBytes(in / longName, smallPoly(2));
    auto r = runCommand("umask 077; " + cli(dir) + " split --json " + quoted(in) + " -o " +
                        quoted(dir / "out"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto report = nlohmann::json::parse(r.out);
    EXPECT_EQ(report["outputPaths"].size(), 4u);
    EXPECT_THAT(r.out, HasSubstr("bad\xEF\xBF\xBD\xEF\xBF\xBD_CH01.wav"));
    EXPECT_TRUE(fs::exists(dir / "out" / (std::string(236, 'L') + "_CH02.wav")));
    for (const auto& entry : fs::directory_iterator(dir / "out")) {
        struct stat st {};
        ASSERT_EQ(::stat(entry.path().c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u) << entry.path();
    }

    // rebuild --json into a folder whose name is not UTF-8; a synced file whose
    // name is not UTF-8 and holds no event index is named as such, never as
    // an event numbered by a sentinel
    r = succeeds(cli(dir) + " demo " + quoted(dir / "d"));
    const fs::path rb = dir / "d" / "rebuild";
    const std::string rebuild = cli(dir) + " rebuild --json --source-xml " +
                                quoted(rb / "source_timeline.fcpxml") + " --stereo-mix " +
                                quoted(rb / "stereo_mix.wav") + " --synced " +
                                quoted(rb / "synced") + " -o ";
    r = succeeds(rebuild + quoted(made(dir / "out\xff")));
    EXPECT_TRUE(nlohmann::json::accept(r.out)) << r.out;
    fs::copy_file(rb / "synced" / *names(rb / "synced").begin(), rb / "synced" / "take\xff.wav");
    r = runCommand(rebuild + quoted(dir / "out2"));
    EXPECT_NE(r.exitCode, 0);
    EXPECT_THAT(r.out + r.err, HasSubstr("1 synced clips are missing an incremental event index"));
    EXPECT_THAT(r.out + r.err, ::testing::Not(HasSubstr("9223372036854775807")));

    // the CSV log of a stamp whose source name is not UTF-8
    genLTC(dir, in / "ltc\xff.wav");
    testing::writeBytes(in / "boom\xfe.wav", smallPoly(1, 4800));
    r = succeeds(stampCommand(dir, {in / "boom\xfe.wav"}, in / "ltc\xff.wav",
                              "--json -o " + quoted(dir / "st")));
    const std::string log =
        testing::readText(nlohmann::json::parse(r.out)["csvLogURL"].get<std::string>());
    EXPECT_EQ(validUTF8(log), log);
    EXPECT_THAT(log, HasSubstr("boom\xEF\xBF\xBD.wav,boom\xEF\xBF\xBD_tc.wav,ltc\xEF\xBF\xBD.wav"));
}

// Header lies and things that are not files: a data chunk whose size field is 0
// while the audio follows (a recorder's crash) is read to the last whole frame
// with a warning naming the file, by stamp and split alike; a named pipe
// called *.wav is skipped with a clear reason instead of hanging the run.
TEST(HostileEnvironmentTest, HeaderLiesAndNonRegularFilesAreCaught) {
    testing::TempDir dir;
    const fs::path in = made(dir / "in");
    genLTC(dir, in / "crash.wav", 2);
    testing::writeBytes(in / "poly.wav", smallPoly(2, 4800));
    for (const char* name : {"crash.wav", "poly.wav"}) {
        ByteBuffer crashed = readWholeFile(in / name);
        const std::string bytes(crashed.begin(), crashed.end());
        const std::size_t data = bytes.find("data");
        ASSERT_NE(data, std::string::npos);
        std::fill_n(crashed.begin() + static_cast<std::ptrdiff_t>(data) + 4, 4, std::uint8_t{0});
        testing::writeBytes(in / name, crashed);
    }
    const auto before = snapshot(in);
    const std::string warning = "crash.wav: the data chunk size does not match the file";

    auto r = succeeds(cli(dir) + " stamp --json " + quoted(in / "crash.wav") + " --fps 25 -o " +
                      quoted(dir / "st"));
    EXPECT_THAT(nlohmann::json::parse(r.out)["warnings"].dump(), HasSubstr(warning));
    EXPECT_EQ(testing::sndfileFrames(dir / "st" / "crash_tc.wav"), 96000);
    EXPECT_EQ(testing::sndfileTimeReference(dir / "st" / "crash_tc.wav"), 36000u * 48000u);

    ASSERT_EQ(::mkfifo((in / "pipe.wav").c_str(), 0600), 0);
    r = succeeds("timeout 60 env " + cli(dir) + " split --json " + quoted(in) + " -o " +
                 quoted(dir / "sp"));
    const auto split = nlohmann::json::parse(r.out)["fileResults"];
    ASSERT_EQ(split.size(), 3u) << r.out;
    for (const auto& file : split) {
        const fs::path name = fs::path(file["inputURL"].get<std::string>()).filename();
        if (name == "pipe.wav") {
            EXPECT_THAT(file["skipReason"].get<std::string>(), HasSubstr("Not a regular file"));
        } else if (name == "poly.wav") {
            EXPECT_THAT(file["warnings"].dump(), HasSubstr("poly.wav: the data chunk size"));
        }
    }
    EXPECT_EQ(testing::sndfileFrames(dir / "sp" / "poly_CH02.wav"), 4800);

    fs::remove(in / "pipe.wav");
    EXPECT_EQ(snapshot(in), before);
    r = runCommand("timeout 60 env " + cli(dir) + " info /dev/zero");
    EXPECT_THAT(r.err, HasSubstr("Not a regular file"));
}

// A log that cannot be written after the outputs were (here: the file size
// limit lets the small output through and stops the longer log) is a warning
// beside the full report, not a lost report.
TEST(HostileEnvironmentTest, AFailedLogWriteKeepsTheReport) {
    testing::TempDir dir;
    const std::string stem(240, 'n');  // long names make the log longer than the output
    genLTC(dir, dir / (stem + "_ltc.wav"));
    testing::writeBytes(dir / (stem + ".wav"), smallPoly(1, 2));
    testing::writeBytes(dir / (stem + "2.wav"), smallPoly(1, 2));
    // sh's ulimit -f counts 512-byte blocks (POSIX); with SIGXFSZ ignored a
    // write past the limit fails with EFBIG. Each output is about 1.2 kB, the
    // log of their two rows about 1.8 kB.
    // The limit holds for the stamp alone; its report goes through a pipe.
    const auto r =
        runCommand("( ( trap '' XFSZ; ulimit -f 3; " +
                   stampCommand(dir, {dir / (stem + ".wav"), dir / (stem + "2.wav")},
                                dir / (stem + "_ltc.wav"), "--json -o " + quoted(dir / "st")) +
                   "; echo $? >&2 ) | cat )");
    ASSERT_EQ(r.err, "0\n");  // the stamp's exit status
    const auto report = nlohmann::json::parse(r.out);
    EXPECT_EQ(report["outputFiles"], nlohmann::json({stem + "_tc.wav", stem + "2_tc.wav"}));
    EXPECT_THAT(report["warnings"].dump(),
                HasSubstr("CSV log could not be written: File too large"));
    EXPECT_EQ(names(dir / "st"), (std::set<std::string>{stem + "_tc.wav", stem + "2_tc.wav"}));
}

}  // namespace
}  // namespace norvane
