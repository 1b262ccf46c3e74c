#include "tests/simulation/sim_runtime.h"

#include <utility>

#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

// The value of a string member in a document of this project's own compact form.
std::string memberText(const std::string& document, const std::string& key) {
  const std::string start = "\"" + key + "\":\"";
  const std::size_t at = document.find(start);
  if (at == std::string::npos) return {};
  const std::size_t begin = at + start.size();
  return document.substr(begin, document.find('"', begin) - begin);
}

std::string changedName(const std::string& name) {
  std::string changed = name;
  if (!changed.empty()) changed.back() = changed.back() == '0' ? '1' : '0';
  return changed;
}

}  // namespace

std::string slotReference(Form form, const std::string& slot, const std::string& nonce,
                          const std::optional<std::string>& requestId) {
  if (form == Form::empty) return {};
  const std::string version = form == Form::noSchemaVersion ? ""
                              : form == Form::newerMajor    ? "\"schemaVersion\":2,"
                                                            : "\"schemaVersion\":1,";
  const std::string written = form == Form::otherNonce ? changedName(nonce) : nonce;
  const std::string named = form == Form::otherSlot ? (slot == "seed" ? "0000" : changedName(slot)) : slot;
  std::string text = "{" + version + "\"slot\":\"" + named + "\",\"nonce\":\"" + written + "\"";
  if (requestId) text += ",\"requestId\":\"" + *requestId + "\"";
  text += "}";
  return form == Form::half ? text.substr(0, text.size() / 2) : text;
}

bool RunningRuntime::alive() const { return sim_.runtimeAlive(start_.pid); }

std::string RunningRuntime::slot() const { return memberText(sim_.read(attemptPath(L"boot-v1.json")), "slot"); }

std::string RunningRuntime::nonce() const { return memberText(sim_.read(attemptPath(L"boot-v1.json")), "nonce"); }

std::wstring RunningRuntime::attemptPath(std::wstring_view name) const {
  return start_.attemptDirectory + L"\\" + std::wstring(name);
}

std::wstring RunningRuntime::statePath(std::wstring_view name) const {
  return start_.stateRoot + L"\\" + std::wstring(name);
}

void RunningRuntime::write(const std::wstring& path, std::string_view contents) const {
  const std::uint32_t error = sim_.write(path, contents);
  sim_.note("runtime writes", path, error == 0 ? "" : "error " + std::to_string(error));
}

void RunningRuntime::exit(std::uint32_t code) const { sim_.endProcess(start_.pid, code); }

std::uint32_t RunningRuntime::startGrandchild(std::uint64_t livesMs) const {
  return sim_.startGrandchild(start_.pid, livesMs);
}

void RunningRuntime::hold(const std::wstring& path, Access share, std::uint64_t forMs) const {
  sim_.holdByProcess(start_.pid, path, share, forMs);
}

Runtime& Runtime::doesAt(std::uint64_t ms, Act act) {
  steps_.push_back({ms, std::move(act)});
  return *this;
}

Runtime& Runtime::exitsAt(std::uint64_t ms, std::uint32_t code) {
  return doesAt(ms, [code](RunningRuntime& self) { self.exit(code); });
}

Runtime& Runtime::readyAt(std::uint64_t ms, Form form) {
  return doesAt(ms, [form](RunningRuntime& self) {
    self.write(self.attemptPath(L"ready-v1"), slotReference(form, self.slot(), self.nonce()));
  });
}

Runtime& Runtime::healthyAt(std::uint64_t ms, Form form) {
  return doesAt(ms, [form](RunningRuntime& self) {
    self.write(self.attemptPath(L"healthy-v1"), slotReference(form, self.slot(), self.nonce()));
  });
}

Runtime& Runtime::requestsRestartAt(std::uint64_t ms, Form form, const std::optional<std::string>& requestId) {
  return doesAt(ms, [form, requestId](RunningRuntime& self) {
    self.write(self.attemptPath(L"restart-v1.json"), slotReference(form, self.slot(), self.nonce(), requestId));
  });
}

Runtime& Runtime::requestsUpdateAt(std::uint64_t ms, const std::string& requestId, const std::string& candidate,
                                   std::optional<std::uint64_t> expectedGeneration) {
  return doesAt(ms, [=](RunningRuntime& self) {
    const std::uint64_t generation = expectedGeneration ? *expectedGeneration : self.sim().generation();
    self.write(self.statePath(L"pending-v1.json"), pendingDocument(requestId, generation, candidate));
  });
}

Runtime& Runtime::writesAttemptFileAt(std::uint64_t ms, const std::wstring& name, const std::string& contents) {
  return doesAt(ms, [=](RunningRuntime& self) { self.write(self.attemptPath(name), contents); });
}

Runtime& Runtime::writesStateFileAt(std::uint64_t ms, const std::wstring& name, const std::string& contents) {
  return doesAt(ms, [=](RunningRuntime& self) { self.write(self.statePath(name), contents); });
}

Runtime& Runtime::startsGrandchildAt(std::uint64_t ms, std::uint64_t livesMs) {
  return doesAt(ms, [livesMs](RunningRuntime& self) { self.startGrandchild(livesMs); });
}

Runtime& Runtime::holdsAt(std::uint64_t ms, const std::wstring& path, Access share, std::uint64_t forMs) {
  return doesAt(ms, [=](RunningRuntime& self) { self.hold(path, share, forMs); });
}

Runtime& Runtime::holdsAttemptDirectoryAt(std::uint64_t ms) {
  return doesAt(ms, [](RunningRuntime& self) { self.hold(self.start().attemptDirectory, accessReadWrite, forever); });
}

Runtime& Runtime::survivesTermination(std::uint64_t ms) {
  lingersMs_ = ms;
  return *this;
}

Runtime Runtime::healthy() { return Runtime().readyAt(100).healthyAt(500).exitsAt(90'000, 0); }

Runtime Runtime::silent() { return {}; }

Runtime Runtime::crashing(std::uint32_t code) { return Runtime().exitsAt(50, code); }

}  // namespace launcher_stub::sim
