#include "host/import/InputFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <thread>

#include "tests/host/TemporaryFolder.h"

namespace {

using Host::Import::InputFile;
using Step = InputFile::Step;

std::string Compressed(const std::string& text) {
  z_stream stream = {};
  EXPECT_EQ(deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string out(deflateBound(&stream, text.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// All lines, "(long)" for one that is too long, and "(end)" or the error.
std::vector<std::string> Lines(InputFile& input) {
  std::vector<std::string> lines;
  for (;;) {
    std::string_view line;
    switch (input.Next(line)) {
      case Step::kLine:
        lines.emplace_back(line);
        break;
      case Step::kTooLong:
        lines.emplace_back("(long)");
        break;
      case Step::kEnd:
        lines.emplace_back("(end)");
        return lines;
      default:
        lines.push_back(input.Error());
        return lines;
    }
  }
}

class InputFileTest : public testing::Test {
 protected:
  std::vector<std::string> LinesOf(const std::string& content) {
    InputFile input;
    EXPECT_TRUE(input.Open(folder_.Put("log", content), false)) << input.Error();
    return Lines(input);
  }

  TemporaryFolder folder_;
};

TEST_F(InputFileTest, LinesComeWithoutTheirEnds) {
  EXPECT_THAT(LinesOf("a\n\r\nb\r\n\nc"), testing::ElementsAre("a", "", "b", "", "c", "(end)"));
  EXPECT_THAT(LinesOf("a\n"), testing::ElementsAre("a", "(end)"));
  EXPECT_THAT(LinesOf(""), testing::ElementsAre("(end)"));
  EXPECT_THAT(LinesOf(std::string("a\0b\n", 4)), testing::ElementsAre(std::string("a\0b", 3), "(end)"));
}

TEST_F(InputFileTest, ByteOrderMarkIsDroppedFromTheFirstLineOnly) {
  EXPECT_THAT(LinesOf("\xEF\xBB\xBF#a\n\xEF\xBB\xBF#b"), testing::ElementsAre("#a", "\xEF\xBB\xBF#b", "(end)"));
}

TEST_F(InputFileTest, LineNumbersStartAtOne) {
  InputFile input;
  ASSERT_TRUE(input.Open(folder_.Put("log", "a\nb\n"), false));
  std::string_view line;
  EXPECT_EQ(input.Next(line), Step::kLine);
  EXPECT_EQ(input.LineNumber(), 1U);
  EXPECT_EQ(input.Next(line), Step::kLine);
  EXPECT_EQ(input.LineNumber(), 2U);
}

TEST_F(InputFileTest, CompressedFileIsReadWhateverItsName) {
  EXPECT_THAT(LinesOf(Compressed("a\nb")), testing::ElementsAre("a", "b", "(end)"));
  EXPECT_THAT(LinesOf(Compressed("a\n") + Compressed("b\n")), testing::ElementsAre("a", "b", "(end)"));
}

TEST_F(InputFileTest, TruncatedCompressedFileFailsBehindItsWholeLines) {
  const std::string whole = Compressed("first\nsecond\nthird\n");
  for (std::size_t cut = 1; cut <= 9; ++cut) {
    const auto lines = LinesOf(whole.substr(0, whole.size() - cut));
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().find("is cut short"), std::string::npos) << cut << ": " << lines.back();
    EXPECT_THAT(lines, testing::Not(testing::Contains("thi")));
  }
}

TEST_F(InputFileTest, CorruptCompressedFileFails) {
  std::string bytes = Compressed(std::string(5000, 'a') + "\n" + std::string(5000, 'b') + "\n");
  bytes[bytes.size() - 6] = static_cast<char>(bytes[bytes.size() - 6] ^ 1);  // inside the check value
  const auto lines = LinesOf(bytes);
  EXPECT_NE(lines.back().find("cannot read"), std::string::npos) << lines.back();
}

TEST_F(InputFileTest, LineBeyondTheLimitIsPassedOver) {
  const auto lines = LinesOf(std::string(InputFile::kMaxLine, 'a') + "\n" + std::string(InputFile::kMaxLine + 1, 'b') +
                             "\nshort\n" + std::string(3 * InputFile::kMaxLine, 'c'));
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0].size(), InputFile::kMaxLine);
  EXPECT_THAT(std::vector<std::string>(lines.begin() + 1, lines.end()),
              testing::ElementsAre("(long)", "short", "(long)", "(end)"));
}

TEST_F(InputFileTest, RewindGivesTheSameLinesAgain) {
  InputFile input;
  ASSERT_TRUE(input.Open(folder_.Put("log", Compressed("\xEF\xBB\xBF"
                                                       "a\nb\n")),
                         true));
  EXPECT_TRUE(input.IsReopenable());
  const auto first = Lines(input);
  ASSERT_TRUE(input.Rewind());
  EXPECT_EQ(Lines(input), first);
  EXPECT_THAT(first, testing::ElementsAre("a", "b", "(end)"));
}

TEST_F(InputFileTest, MissingFileAndFolderAreErrors) {
  InputFile missing;
  EXPECT_FALSE(missing.Open(folder_.Path("nothing"), false));
  EXPECT_EQ(missing.Error(), "cannot read " + folder_.Path("nothing") + ": No such file or directory");
  InputFile directory;
  EXPECT_FALSE(directory.Open(folder_.Path(), false));
  EXPECT_EQ(directory.Error(), "cannot read " + folder_.Path() + ": Is a directory");
}

// A named pipe into which a thread writes `content`.
class Pipe {
 public:
  Pipe(const TemporaryFolder& folder, std::string content) : path_(folder.Path("pipe")) {
    EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
    writer_ = std::thread([path = path_, text = std::move(content)] { std::ofstream(path, std::ios::binary) << text; });
  }
  ~Pipe() { writer_.join(); }
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
  std::thread writer_;
};

TEST_F(InputFileTest, PipeIsReadOnceAndCannotGoBack) {
  const Pipe pipe(folder_, "a\nb\n");
  InputFile input;
  ASSERT_TRUE(input.Open(pipe.Path(), false));
  EXPECT_FALSE(input.IsReopenable());
  EXPECT_THAT(Lines(input), testing::ElementsAre("a", "b", "(end)"));
  EXPECT_FALSE(input.Rewind());
}

TEST_F(InputFileTest, PipeThatMustGoBackIsCopied) {
  const Pipe pipe(folder_, Compressed("a\nb\n"));
  InputFile input;
  ASSERT_TRUE(input.Open(pipe.Path(), true));
  EXPECT_FALSE(input.IsReopenable());
  EXPECT_THAT(Lines(input), testing::ElementsAre("a", "b", "(end)"));
  ASSERT_TRUE(input.Rewind());
  EXPECT_THAT(Lines(input), testing::ElementsAre("a", "b", "(end)"));
}

}  // namespace
