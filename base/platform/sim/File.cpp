#include "Velmar/OS/File.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/sim/State.h"

namespace Velmar::OS {

namespace {

using Sim::Operation;
using Sim::Outcome;
using Lock = std::unique_lock<std::mutex>;

struct OpenFile {
  Sim::FilePointer node;
  u64 boot;
  bool append;
  u64 position = 0;
};

// Null for a file that is not open, or that was open when the machine last went down.
OpenFile* LiveFile(void* handle) {
  auto* file = static_cast<OpenFile*>(handle);
  return file != nullptr && file->boot == Sim::GetState().boot ? file : nullptr;
}

void SetDone(u32* done, u32 transferred) {
  if (done != nullptr) {
    *done = transferred;
  }
}

// How much of a write of `size` bytes at `offset` finds room on the disk.
u32 RoomFor(const OpenFile& file, u64 offset, u32 size) {
  Sim::State& state = Sim::GetState();
  if (state.diskLimit == 0) {
    return size;
  }
  u64 free = state.diskLimit - std::min(state.diskLimit, state.disk.UsedBytes());
  u64 end = std::max<u64>(file.node->Content().size(), offset) + free;
  return static_cast<u32>(std::min<u64>(size, end - offset));
}

bool SyncFile(Sim::FileNode& node) {
  switch (Sim::GetState().Begin(Operation::kSync)) {
    case Outcome::kProceed:
      node.Sync();
      return true;
    case Outcome::kTear:
      node.SyncHalf();
      return false;
    case Outcome::kDrop:
      return true;
    case Outcome::kFail:
      break;
  }
  return false;
}

// The file that a handle stands for; a dropped opening gets one without a name, and empty.
Sim::FilePointer OpenNode(Operation kind, const char* path) {
  Sim::State& state = Sim::GetState();
  switch (state.Begin(kind)) {
    case Outcome::kProceed:
      return kind == Operation::kCreate ? state.disk.Create(Sim::NormalizePath(path), state.scheduler.EpochMs())
                                        : state.disk.Find(Sim::NormalizePath(path));
    case Outcome::kDrop:
      return std::make_shared<Sim::FileNode>();
    default:
      return nullptr;
  }
}

}  // namespace

File::~File() {
  File::Close();
}

bool File::Create(const char* path, bool append, bool truncate) {
  if (path == nullptr || !File::Close()) {
    return false;
  }
  Sim::State& state = Sim::GetState();
  Lock lock(state.mutex);
  Sim::FilePointer node = OpenNode(Operation::kCreate, path);
  if (node == nullptr) {
    return false;
  }
  if (truncate && !node->Content().empty()) {
    node->Truncate(state.scheduler.EpochMs());
  }
  handle_ = new OpenFile{node, state.boot, append};
  writable_ = true;
  return true;
}

bool File::OpenRead(const char* path) {
  if (path == nullptr || !File::Close()) {
    return false;
  }
  Lock lock(Sim::GetState().mutex);
  Sim::FilePointer node = OpenNode(Operation::kOpenRead, path);
  if (node == nullptr) {
    return false;
  }
  handle_ = new OpenFile{node, Sim::GetState().boot, false};
  return true;
}

bool File::Close() {
  if (handle_ == nullptr) {
    return true;
  }
  Sim::State& state = Sim::GetState();
  Lock lock(state.mutex);
  std::unique_ptr<OpenFile> file(static_cast<OpenFile*>(handle_));
  bool wasWritable = writable_;
  handle_ = nullptr;
  writable_ = false;
  if (file->boot != state.boot) {
    return false;
  }
  bool synced = !wasWritable || SyncFile(*file->node);
  Outcome outcome = state.Begin(Operation::kClose);
  return synced && (outcome == Outcome::kProceed || outcome == Outcome::kDrop);
}

bool File::Read(void* data, u32 size, u32* done) {
  Sim::State& state = Sim::GetState();
  Lock lock(state.mutex);
  SetDone(done, 0);
  OpenFile* file = LiveFile(handle_);
  if (file == nullptr || writable_) {
    return false;
  }
  if (size == 0) {
    return true;
  }
  Outcome outcome = state.Begin(Operation::kRead);
  if (outcome == Outcome::kDrop) {
    file->position += size;
    SetDone(done, size);
    return true;
  }
  if (outcome != Outcome::kProceed) {
    return false;
  }
  const std::string& content = file->node->Content();
  u64 start = std::min<u64>(file->position, content.size());
  u32 part = static_cast<u32>(std::min<u64>(size, content.size() - start));
  std::memcpy(data, content.data() + start, part);
  file->position += part;
  SetDone(done, part);
  return part == size;
}

bool File::Write(const void* data, u32 size, u32* done) {
  Sim::State& state = Sim::GetState();
  Lock lock(state.mutex);
  SetDone(done, 0);
  OpenFile* file = LiveFile(handle_);
  if (file == nullptr || !writable_) {
    return false;
  }
  if (size == 0) {
    return true;
  }
  u64 offset = file->append ? file->node->Content().size() : file->position;
  Outcome outcome = state.Begin(Operation::kWrite);
  if (outcome == Outcome::kDrop) {
    file->position = offset + size;
    SetDone(done, size);
    return true;
  }
  if (outcome == Outcome::kFail) {
    return false;
  }
  u32 part = RoomFor(*file, offset, outcome == Outcome::kTear ? size / 2 : size);
  file->node->Write(offset, data, part, state.scheduler.EpochMs());
  file->position = offset + part;
  SetDone(done, part);
  return part == size;
}

u64 File::Tell() {
  Lock lock(Sim::GetState().mutex);
  OpenFile* file = LiveFile(handle_);
  return file == nullptr || Sim::GetState().dead ? ~u64{0} : file->position;
}

bool File::Seek(u64 position) {
  Lock lock(Sim::GetState().mutex);
  OpenFile* file = LiveFile(handle_);
  if (file == nullptr || position > ~u64{0} / 2) {
    return false;
  }
  Outcome outcome = Sim::GetState().Begin(Operation::kSeek);
  if (outcome == Outcome::kProceed) {
    file->position = position;
  }
  return outcome == Outcome::kProceed || outcome == Outcome::kDrop;
}

u64 File::GetFileSize(const char* path) {
  Lock lock(Sim::GetState().mutex);
  if (path == nullptr || Sim::GetState().Begin(Operation::kSize) != Outcome::kProceed) {
    return 0;
  }
  Sim::FilePointer node = Sim::GetState().disk.Find(Sim::NormalizePath(path));
  return node == nullptr ? 0 : node->Content().size();
}

}  // namespace Velmar::OS
