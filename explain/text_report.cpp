#include "explain/text_report.h"

#include <algorithm>

#include "explain/path_text.h"
#include "explain/wording.h"

namespace launcher_stub::explain {
namespace {

// One line, put together from pieces of text.
class Line {
 public:
  explicit Line(std::string& out) : out_(out) {}
  ~Line() { out_ += '\n'; }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  Line(Line&&) = delete;
  Line& operator=(Line&&) = delete;

  Line& operator<<(std::string_view text) {
    out_ += text;
    return *this;
  }
  Line& operator<<(std::uint64_t number) { return *this << std::to_string(number); }

  // The text, and spaces up to a width.
  Line& column(std::string_view text, std::size_t width) {
    *this << text;
    out_.append(width > text.size() ? width - text.size() : 1, ' ');
    return *this;
  }

 private:
  std::string& out_;
};

void tellWhere(const Findings& findings, std::string& out) {
  Line(out) << "Install directory: " << pathText(findings.installDirectory);
  Line(out) << "State root:        " << pathText(findings.stateRoot) << " (" << wordingOf(findings.rootFrom).sentence
            << (findings.rootIsThere ? ")" : "; it is not there)");
  if (!findings.bootstrapUnderstood) {
    Line(out) << "The bootstrap was written for a newer launcher: only its state root is used, requests and candidates "
                 "are left alone.";
  }
  if (findings.changedMeanwhile) {
    Line(out) << "The documents were being changed while they were read: what follows may mix old and new.";
  }
}

void tellStart(const Findings& findings, std::string& out) {
  out += '\n';
  if (!findings.startsSomething) {
    Line(out) << "NOTHING would start: \"" << findings.message << "\"";
    return;
  }
  Line line(out);
  line << "Would start: " << findings.slot << ", as " << kindName(findings.kind);
  if (findings.kind == kindCandidate) {
    line << " (start " << findings.candidateStart << " of " << maxCandidateStarts << ")";
  }
}

void tellSlot(const SlotFinding& slot, std::size_t width, std::string& out) {
  Line line(out);
  line << "  ";
  line.column(kindName(slot.kind), 11).column(slot.slot, width) << wordingOf(slot.standing).sentence;
  if (slot.markerMissing) line << ", COMPLETE-v1 is missing";
  if (slot.entryMissing) line << ", entry-v1.exe is missing";
}

void tellSlots(const Findings& findings, std::string& out) {
  std::size_t width = 6;
  for (const SlotFinding& slot : findings.slots) width = std::max(width, slot.slot.size() + 2);
  for (const UnnamedSlot& slot : findings.unnamed) width = std::max(width, slot.slot.size() + 2);
  for (const SlotFinding& slot : findings.slots) tellSlot(slot, width, out);
  for (const UnnamedSlot& slot : findings.unnamed) {
    Line line(out);
    line << "  ";
    line.column("(unnamed)", 11).column(slot.slot, width) << (slot.complete ? "complete" : "not complete");
    if (slot.rejected) line << ", rejected";
  }
}

void tellRequest(const Findings& findings, std::string& out) {
  const RequestFinding& request = findings.request;
  out += '\n';
  if (findings.requestGeneration) {
    Line(out) << "A request must name generation " << *findings.requestGeneration
              << " to be taken in by the next start.";
  } else {
    Line(out) << "The next start takes no request in.";
  }
  if (findings.generationAfterStart) {
    Line(out) << "After the next start the generation is " << *findings.generationAfterStart << ".";
  }
  Line line(out);
  line << "Pending request: ";
  if (request.request) {
    line << request.request->requestId << " for slot " << request.request->candidate << ", generation "
         << request.request->expectedGeneration << ": ";
  }
  line << wordingOf(request.standing).sentence;
  if (request.namesActive) line << "; its slot is the active one";
  if (request.removed) line << "; the next start removes the file";
}

void tellState(const Findings& findings, std::string& out) {
  out += '\n';
  Line(out) << "State in force: " << wordingOf(findings.stateFrom).sentence;
  if (!findings.state) return;
  const BootState& state = *findings.state;
  Line line(out);
  line << "  generation " << state.generation;
  if (state.active) line << ", active " << *state.active;
  if (state.previous) line << ", previous " << *state.previous;
  if (state.candidate) {
    line << ", candidate " << *state.candidate << " (" << state.attemptCount << " of " << maxCandidateStarts
         << " starts made)";
  }
  if (state.lastRequestId) line << ", last request " << *state.lastRequestId;
  if (state.recovered) line << ", recovered";
  for (std::size_t i = 0; i < state.rejected.size(); ++i) {
    line << (i == 0 ? ", rejected " : " ") << state.rejected[i];
  }
}

void tellDocuments(const Findings& findings, std::string& out) {
  out += "\nDocuments:\n";
  std::size_t width = 0;
  for (const DocumentFinding& document : findings.documents) width = std::max(width, document.name.size() + 2);
  for (const DocumentFinding& document : findings.documents) {
    Line line(out);
    line << "  ";
    line.column(document.name, width) << wordingOf(document.condition).sentence << document.error;
  }
}

// A sentence, and in parentheses what is to be said of it.
void tellMark(Line& line, std::string_view sentence, std::string_view remark, const std::string& error) {
  line << sentence;
  if (remark.empty()) return;
  line << " (" << remark;
  if (!error.empty()) line << ": " << error;
  line << ")";
}

void tellMarker(Line& line, const MarkerFinding& marker) {
  const Wording wording = wordingOf(marker.standing);
  tellMark(line, wording.sentence, wording.remark, marker.error);
}

void tellAttempt(const AttemptFinding& attempt, std::string& out) {
  Line line(out);
  line << "  " << pathText(attempt.name) << ": ";
  if (attempt.record.condition != Condition::valid) {
    line << "its record is " << wordingOf(attempt.record.condition).sentence << attempt.record.error;
    return;
  }
  line << "slot " << attempt.slot << ", ready ";
  tellMarker(line, attempt.ready);
  line << ", healthy ";
  tellMarker(line, attempt.healthy);
  line << ", restart ";
  const Wording restart = wordingOf(attempt.restart.standing);
  tellMark(line, restart.sentence, restart.remark, attempt.restart.error);
}

void tellAttempts(const Findings& findings, std::string& out) {
  out += "\nAttempts, the newest first:";
  out += findings.attempts.empty() ? " none\n" : "\n";
  for (const AttemptFinding& attempt : findings.attempts) tellAttempt(attempt, out);
}

void tellPrograms(const Findings& findings, std::string& out) {
  out += '\n';
  if (!findings.programs) {
    Line(out) << "Running launcher: not known on this system";
    return;
  }
  if (findings.programs->empty()) {
    Line(out) << "Running launcher: no program runs from the install directory (a hint; the lock is not touched)";
    return;
  }
  Line(out) << "Running launcher: a program runs from the install directory (a hint; the lock is not touched):";
  for (const ProgramFinding& program : *findings.programs) {
    Line(out) << "  process " << program.processId << ": " << pathText(program.path);
  }
}

}  // namespace

std::string textReport(const Findings& findings) {
  std::string out;
  tellWhere(findings, out);
  tellStart(findings, out);
  tellSlots(findings, out);
  tellRequest(findings, out);
  tellState(findings, out);
  tellDocuments(findings, out);
  tellAttempts(findings, out);
  tellPrograms(findings, out);
  return out;
}

}  // namespace launcher_stub::explain
