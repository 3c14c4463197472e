#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "Picture.h"
#include "Terminal.h"
#include "View.h"
#include "plat/Exception.h"

namespace drive {

namespace {

// Where the video goes: a file, standard output, or a program that encodes it.
class Sink {
 public:
  explicit Sink(const std::string& file) : file_(file) {
    if (file == "-") {
      stream_ = stdout;
    } else if (file.ends_with(".y4m")) {
      stream_ = std::fopen(file.c_str(), "wb");
      if (!stream_) throw Failure(file + ": " + std::strerror(errno));
    } else if (file.ends_with(".webm") || file.ends_with(".mp4") || file.ends_with(".mkv")) {
      startEncoder();
    } else {
      throw Failure(file + ": videos are .y4m, .webm, .mp4 or .mkv");
    }
  }
  ~Sink() {
    if (stream_ && stream_ != stdout) std::fclose(stream_);
    if (encoder_ > 0) waitpid(encoder_, nullptr, 0);
  }
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  // False when nobody takes it any more.
  bool write(const void* bytes, size_t length) {
    return std::fwrite(bytes, 1, length, stream_) == length;
  }
  // Throws Failure unless the file is complete.
  void close() {
    const bool good = stream_ == stdout ? std::fflush(stdout) == 0 : std::fclose(stream_) == 0;
    stream_ = nullptr;
    int status = 0;
    if (encoder_ > 0) waitpid(std::exchange(encoder_, -1), &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) {
      throw Failure(file_ + ": this format needs the program ffmpeg");
    }
    if (!good || status != 0) throw Failure(file_ + ": the video can't be written");
  }

 private:
  void startEncoder() {
    int ends[2];
    // The agent must not hold it open: the encoder ends when all writers have.
    if (pipe2(ends, O_CLOEXEC) < 0) throw Failure("pipe failed");
    signal(SIGPIPE, SIG_IGN);
    encoder_ = fork();
    if (encoder_ == 0) {
      // Ctrl-C is for us: the encoder ends its file when we close the pipe.
      setpgid(0, 0);
      dup2(ends[0], STDIN_FILENO);
      closeFrom(3);
      execlp("ffmpeg", "ffmpeg", "-y", "-loglevel", "error", "-f", "yuv4mpegpipe", "-i", "-",
             "-pix_fmt", "yuv420p", "-vf", "pad=ceil(iw/2)*2:ceil(ih/2)*2", file_.c_str(),
             static_cast<char*>(nullptr));
      _exit(127);
    }
    ::close(ends[0]);
    if (encoder_ < 0) throw Failure("fork failed");
    stream_ = fdopen(ends[1], "wb");
  }
  static void closeFrom(int first) {
    for (int fd = first; fd < 1024; ++fd) ::close(fd);
  }

  const std::string file_;
  std::FILE* stream_ = nullptr;
  pid_t encoder_ = -1;
};

// Three planes of full size, as ITU-R BT.601 has them.
class Frame {
 public:
  Frame(int width, int height)
      : width_(static_cast<size_t>(width)),
        height_(static_cast<size_t>(height)),
        planes_(width_ * height_ * 3) {}

  // A picture of another size is cut off, or has black around it.
  void set(const Picture& picture) {
    const size_t area = width_ * height_;
    std::fill_n(planes_.begin(), area, uint8_t{16});
    std::fill(planes_.begin() + static_cast<std::ptrdiff_t>(area), planes_.end(), uint8_t{128});
    const size_t rows = std::min(height_, static_cast<size_t>(picture.height()));
    const size_t columns = std::min(width_, static_cast<size_t>(picture.width()));
    for (size_t y = 0; y < rows; ++y) {
      const uint8_t* in = picture.rgba() + y * static_cast<size_t>(picture.width()) * 4;
      for (size_t x = 0; x < columns; ++x, in += 4) {
        const int r = in[0], g = in[1], b = in[2];
        uint8_t* out = &planes_[y * width_ + x];
        out[0] = static_cast<uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16);
        out[area] = static_cast<uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128);
        out[2 * area] = static_cast<uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128);
      }
    }
  }
  bool writeTo(Sink& sink) const {
    static constexpr char kHeader[] = "FRAME\n";
    return sink.write(kHeader, sizeof kHeader - 1) && sink.write(planes_.data(), planes_.size());
  }

 private:
  const size_t width_, height_;
  std::vector<uint8_t> planes_;
};

}  // namespace

void record(const SessionOptions& sessionOptions, const RecordOptions& options) {
  using Clock = std::chrono::steady_clock;
  Sink sink(options.file);
  host::Transcript seen(host::Transcript::Keep::kLast);
  Session session(sessionOptions, seen);
  session.startDesktop();
  const rfb::Rect first = session.agent().pixelBuffer().rect;
  Frame frame(first.width(), first.height());
  const std::string header = plat::format("YUV4MPEG2 W%d H%d F%d:1 Ip A1:1 C444\n", first.width(),
                                          first.height(), options.rate);
  bool taken = sink.write(header.data(), header.size());

  const bool progress = isatty(STDERR_FILENO) == 1;
  const Clock::time_point begin = Clock::now();
  int updates = 0, shown = -1;
  session.agent().fbUpdateRequest();
  for (int64_t number = 0; taken && session.agent().isConnected(); ++number) {
    const double due = double(number) / options.rate;
    if (options.seconds > 0 && due >= options.seconds) break;
    const double left = due - std::chrono::duration<double>(Clock::now() - begin).count();
    if (left > 0) {
      session.run(left, [&] {
        if (seen.count("fbUpdate") == updates) return false;
        updates = seen.count("fbUpdate");
        session.agent().fbUpdateRequest();
        return false;
      });
    }
    if (interrupted()) break;
    // What has not changed is not converted again.
    const int now = seen.count("fbUpdate") + seen.count("setPixelBuffer");
    if (now != shown) {
      frame.set(Picture::ofFramebuffer(session.agent(), session.agent().pixelBuffer().rect));
    }
    shown = now;
    taken = frame.writeTo(sink);
    if (progress && number % options.rate == 0) {
      std::fprintf(stderr, "\r%d s", static_cast<int>(number / options.rate));
    }
  }
  if (progress) std::fputs("\n", stderr);
  sink.close();
  session.finish();
}

}  // namespace drive
