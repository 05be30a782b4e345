#include "host/import/ImportRunner.h"

#include <algorithm>
#include <utility>

#include "Velmar/OS/Time.h"
#include "host/import/FlatJson.h"
#include "host/import/JsonlReader.h"
#include "host/import/SysmonReader.h"
#include "host/import/ZeekReader.h"

namespace Host::Import {

struct ImportRunner::Source {
  std::string name;
  Form form;
  std::unique_ptr<InputFile> input;  // null where the name is opened again for each pass
};

struct ImportRunner::Readers {
  Readers(const LocalNetworks& local, ProcessRegistry& processes, RecordedHashes& hashes)
      : zeek(local), sysmon(local), jsonl(local, processes, hashes) {}

  ConnectionReader& Of(Form form) {
    switch (form) {
      case Form::kZeek:
        return zeek;
      case Form::kSysmon:
        return sysmon;
      default:
        return jsonl;
    }
  }

  ZeekReader zeek;
  SysmonReader sysmon;
  JsonlReader jsonl;
};

std::optional<Form> RecogniseForm(std::string_view line) {
  if (line.substr(0, 1) == "#") {
    return Form::kZeek;
  }
  FlatJson object;
  if (!object.Parse(line)) {
    return std::nullopt;
  }
  if (object.FindAny({"id.orig_h", "id_orig_h"}) != nullptr) {
    return Form::kZeek;
  }
  if (object.FindAny({"EventID", "EventData", "EventData.EventID"}) != nullptr) {
    return Form::kSysmon;
  }
  return object.Find("ip") != nullptr && object.Find("first_seen") != nullptr ? std::optional<Form>(Form::kJsonl)
                                                                              : std::nullopt;
}

namespace {

// Reads to the first line that is not blank and goes back. Nothing when the file cannot be read or its form is unknown.
std::optional<Form> PeekForm(InputFile& input) {
  std::string_view line;
  InputFile::Step step = InputFile::Step::kLine;
  while (step == InputFile::Step::kLine && line.empty()) {
    step = input.Next(line);
  }
  std::optional<Form> form;
  if (step == InputFile::Step::kLine) {
    form = RecogniseForm(line);
  } else if (step == InputFile::Step::kEnd) {
    form = Form::kJsonl;  // there is nothing in it, so that any will do
  }
  return form && input.Rewind() ? form : std::nullopt;
}

}  // namespace

ImportRunner::ImportRunner(ImportOptions options, ProcessRegistry& processes, RecordedHashes& hashes, Report report)
    : options_(std::move(options)),
      processes_(processes),
      hashes_(hashes),
      report_(std::move(report)),
      readers_(std::make_unique<Readers>(options_.local, processes_, hashes_)) {}

ImportRunner::~ImportRunner() = default;

void ImportRunner::Fail(const std::string& message) {
  ++summary_.failedFiles;
  report_(message);
}

bool ImportRunner::Prepare() {
  for (const std::string& name : options_.files) {
    AddSource(name);
  }
  return !sources_.empty();
}

void ImportRunner::AddSource(const std::string& name) {
  const bool rewindable = !options_.form || options_.form == Form::kSysmon;
  auto input = std::make_unique<InputFile>();
  if (!input->Open(name, rewindable)) {
    Fail(input->Error());
    return;
  }
  const std::optional<Form> form = options_.form ? options_.form : PeekForm(*input);
  if (!form) {
    Fail(!input->Error().empty() ? input->Error()
                                 : "cannot tell the form of " + input->Name() + "; name it with --from");
    return;
  }
  sources_.push_back({name, *form, input->IsReopenable() ? nullptr : std::move(input)});
}

ImportSummary ImportRunner::Run(const EventSink& sink, const StopRequested& stopRequested) {
  nowMs_ = Velmar::OS::Time::GetEpochTime(nullptr);
  policyCheck_.emplace(options_.policy, nowMs_);
  DayWindow window([this, &sink](const ConnectionRecord& event) {
    summary_.delivered = sink(event);
    summary_.events += summary_.delivered ? 1 : 0;
    return summary_.delivered;
  });
  for (Source& source : sources_) {
    if (source.form == Form::kSysmon && !stopRequested()) {
      LearnFrom(source, stopRequested);
    }
  }
  readers_->sysmon.Publish(processes_, hashes_);
  for (Source& source : sources_) {
    if (summary_.delivered && !summary_.interrupted) {
      ReadSource(source, window, stopRequested);
    }
  }
  if (summary_.delivered) {
    window.Flush();
  }
  return summary_;
}

void ImportRunner::LearnFrom(Source& source, const StopRequested& stopRequested) {
  InputFile fresh;
  InputFile& input = source.input != nullptr ? *source.input : fresh;
  if (source.input == nullptr && !fresh.Open(source.name, true)) {
    return;  // reported when its connections are read
  }
  std::string_view line;
  for (InputFile::Step step = input.Next(line);
       (step == InputFile::Step::kLine || step == InputFile::Step::kTooLong) && !stopRequested();
       step = input.Next(line)) {
    if (step == InputFile::Step::kLine) {
      readers_->sysmon.Learn(line);
    }
  }
  if (source.input != nullptr) {
    input.Rewind();
  }
}

void ImportRunner::ReadSource(Source& source, DayWindow& window, const StopRequested& stopRequested) {
  InputFile fresh;
  InputFile& input = source.input != nullptr ? *source.input : fresh;
  if (source.input == nullptr && !fresh.Open(source.name, false)) {
    Fail(fresh.Error());
    return;
  }
  ConnectionReader& reader = readers_->Of(source.form);
  reader.StartFile();
  std::string_view line;
  for (;;) {
    const InputFile::Step step = input.Next(line);
    if (stopRequested()) {  // which also makes a read fail
      summary_.interrupted = true;
      return;
    }
    if (step == InputFile::Step::kFailed) {
      Fail(input.Error());
    }
    if (step == InputFile::Step::kFailed || step == InputFile::Step::kEnd) {
      return;
    }
    ++summary_.linesRead;
    if (step == InputFile::Step::kTooLong) {
      Skip(input, Finding::kMalformed);
    } else if (!ReadLine(input, line, reader, window)) {
      return;
    }
  }
}

bool ImportRunner::ReadLine(const InputFile& input, std::string_view line, ConnectionReader& reader,
                            DayWindow& window) {
  RecordedConnection connection;
  Finding finding = reader.Read(line, connection);
  if (finding == Finding::kConnection) {
    finding = CheckBounds(connection, nowMs_);
  }
  if (finding == Finding::kConnection) {
    finding = policyCheck_->Check(connection);
  }
  if (finding == Finding::kConnection) {
    ++summary_.connections;
    return EmitEvents(connection, [&window](const ConnectionRecord& event) { return window.Add(event); });
  }
  if (finding != Finding::kNothing) {
    Skip(input, finding);
  }
  return true;
}

void ImportRunner::Skip(const InputFile& input, Finding reason) {
  ++summary_.skipped[reason];
  report_(input.Name() + ":" + std::to_string(input.LineNumber()) + ": skipped, " + NameOf(reason) + ": " +
          ExplanationOf(reason));
}

}  // namespace Host::Import
