#include "base/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/stop.h"

namespace quorl {
namespace {

std::string content_of(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

struct OutputFiles : testing::Test {
  OutputFiles() {
    ::unlink(path.c_str());
    stop_requested = 0;
  }
  ~OutputFiles() override {
    ::unlink(path.c_str());
    stop_requested = 0;
  }

  const std::string path = testing::TempDir() + "output_file_" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() +
                           std::to_string(::getpid());
};

TEST_F(OutputFiles, that_was_never_opened_takes_nothing) {
  OutputFile file;
  file.write("lost");
  file.flush();
  EXPECT_FALSE(file.is_open());
  EXPECT_FALSE(file.is_writable());
}

TEST_F(OutputFiles, that_cannot_be_opened_takes_nothing_without_a_word) {
  OutputFile file;
  file.open_for_appending(path + ".none/file");
  file.write("lost");
  file.flush();
  EXPECT_FALSE(file.is_open());
  EXPECT_FALSE(file.is_writable());
}

TEST_F(OutputFiles, is_appended_to) {
  std::ofstream(path) << "before\n";
  OutputFile file;
  file.open_for_appending(path);
  EXPECT_TRUE(file.is_writable());
  file.write("one\n");
  file.write("two\n");
  EXPECT_EQ(content_of(path), "before\n");  // still buffered
  file.flush();
  EXPECT_EQ(content_of(path), "before\none\ntwo\n");
}

TEST_F(OutputFiles, is_emptied_when_so_opened) {
  std::ofstream(path) << "before\n";
  OutputFile file;
  file.open_emptied(path);
  file.write("one\n");
  file.close();
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(content_of(path), "one\n");
}

TEST_F(OutputFiles, writes_what_is_buffered_when_it_goes) {
  {
    OutputFile file;
    file.open_for_appending(path);
    file.write("one\n");
  }
  EXPECT_EQ(content_of(path), "one\n");
}

TEST_F(OutputFiles, writes_by_itself_once_much_is_buffered) {
  OutputFile file;
  file.open_for_appending(path);
  const std::string line(100, 'x');
  for (int i = 0; i < 100; ++i) file.write(line);
  const size_t written = content_of(path).size();
  EXPECT_GE(written, 8192U);
  EXPECT_EQ(written % line.size(), 0U);  // whole pieces
}

TEST_F(OutputFiles, takes_no_more_once_a_write_has_failed) {
  OutputFile file;
  file.open_for_appending("/dev/full");
  file.write("one\n");
  EXPECT_TRUE(file.is_writable());
  file.flush();
  EXPECT_TRUE(file.is_open());
  EXPECT_FALSE(file.is_writable());
}

/// What comes through a FIFO whose reader does not begin before it is full.
std::string content_of_full(const std::string& fifo) {
  std::ifstream file(fifo);  // waits for the writer
  pollfd writable{::open(fifo.c_str(), O_WRONLY | O_NONBLOCK), POLLOUT, 0};
  for (int i = 0; i < 60'000 && ::poll(&writable, 1, 0) > 0; ++i) ::usleep(1000);
  ::close(writable.fd);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

TEST_F(OutputFiles, loses_nothing_to_a_slow_reader_of_a_fifo) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  std::string read;
  std::thread reader([&] { read = content_of_full(path); });
  std::string written;
  {
    OutputFile file;
    file.open_for_appending(path);
    for (int i = 0; i < 100000; ++i) {
      const std::string line = "line " + std::to_string(i) + "\n";
      written += line;
      file.write(line);
    }
  }
  reader.join();
  EXPECT_EQ(read, written);
}

TEST_F(OutputFiles, gives_up_a_reader_that_stalls_once_a_stop_is_requested) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
  OutputFile file;
  file.open_for_appending(path);
  stop_requested = 1;
  const std::string more_than_a_fifo_holds(2'000'000, 'x');
  file.write(more_than_a_fifo_holds);  // it would wait for ever
  EXPECT_FALSE(file.is_writable());
  file.close();
  ::close(reader);
}

TEST_F(OutputFiles, are_written_without_waiting_whatever_their_descriptor) {
  int lowest = 0;  // that is free
  std::vector<int> taken;
  while (lowest < 20) {  // above each of the commands of fcntl
    taken.push_back(::dup(STDERR_FILENO));
    ASSERT_GE(taken.back(), 0);
    lowest = taken.back() + 1;
  }
  OutputFile file;
  file.open_emptied(path);
  EXPECT_NE(::fcntl(lowest, F_GETFL) & O_NONBLOCK, 0);
  for (const int fd : taken) ::close(fd);
}

}  // namespace
}  // namespace quorl
