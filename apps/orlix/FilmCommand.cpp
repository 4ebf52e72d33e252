// orlix film DIR: a film of a folder's pictures, by the ffmpeg program, which is no part of this one.

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "apps/orlix/Command.h"
#include "apps/orlix/FileCheck.h"
#include "apps/orlix/PictureSequence.h"
#include "host/files/AtomicFile.h"

extern char** environ;

namespace orlix {

namespace {

namespace fs = std::filesystem;

// A list for ffmpeg. Quotes within quotes end, escape and begin them again.
std::string FileList(const PictureSequence& pictures, double fps) {
  std::string text = "ffconcat version 1.0\n";
  for (const FrameFile& file : pictures.files) {
    std::string path = fs::absolute(file.path).string();
    for (std::size_t at = 0; (at = path.find('\'', at)) != std::string::npos; at += 4) path.replace(at, 1, "'\\''");
    text += fmt::format("file '{}'\nduration {}\n", path, 1 / fps);
  }
  return text;
}

// What went to standard error stands there; the exit code is checked.
Status RunProgram(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = 0;
  if (const int error = ::posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ); error != 0) {
    return Status::Fail(
        ErrorKind::Usage,
        fmt::format("{} can't be started ({}); install it, or make the film elsewhere from the pictures", words[0],
                    std::strerror(error)));
  }
  int outcome = 0;
  while (::waitpid(child, &outcome, 0) < 0) {
    if (errno != EINTR) return Status::Fail(ErrorKind::Internal, "no outcome of " + words[0]);
  }
  if (WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0) return {};
  return Status::Fail(
      ErrorKind::Output,
      fmt::format("{} failed; the ending of the film's name must be one that it knows, such as .mp4", words[0]));
}

}  // namespace

Status FilmCommand(const Program&, const FilmOptions& options) {
  const Result<PictureSequence> pictures = FindPictures(options.folder, options.name);
  if (!pictures) return pictures.error();
  const fs::path out =
      options.out.empty() ? fs::path(options.folder) / (pictures->name + ".mp4") : fs::path(options.out);
  std::error_code error;
  if (const fs::path parent = out.parent_path(); !parent.empty() && !fs::is_directory(parent, error)) {
    return Status::Fail(ErrorKind::Output, out.string() + ": its folder doesn't exist");
  }
  // The ending says what kind of film it becomes.
  const fs::path temporary = out.parent_path() / fmt::format(".film.{}{}", ::getpid(), out.extension().string());
  const fs::path list = out.parent_path() / fmt::format(".film.{}.txt", ::getpid());
  Status status = WriteFileAtomically(list, FileList(*pictures, options.fps));
  if (status) {
    // Most players want pairs of rows and columns, and colours of that layout.
    status = RunProgram({"ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-f", "concat", "-safe", "0", "-i",
                         list.string(), "-vf", fmt::format("fps={},pad=ceil(iw/2)*2:ceil(ih/2)*2", options.fps),
                         "-pix_fmt", "yuv420p", temporary.string()});
  }
  if (status) {
    fs::rename(temporary, out, error);
    if (error) status = Status::Fail(ErrorKind::Output, out.string() + ": " + error.message());
  }
  fs::remove(list, error), fs::remove(temporary, error);
  if (!status) return status;
  const auto [first, last] = std::pair(pictures->files.front().frame, pictures->files.back().frame);
  fmt::print("{}: {} pictures \"{}\", frames {} to {}\n", out.string(), pictures->files.size(), pictures->name, first,
             last);
  return {};
}

}  // namespace orlix
