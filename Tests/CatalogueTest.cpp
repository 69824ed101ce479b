// What the catalogue that comes with the program says of real agents: their command lines and the
// lines of their records are as these programs have written them.
#include <gtest/gtest.h>

#include <array>

#include "Host/AgentsFile.h"
#include "WakelatchCore/AgentCommandLine.h"
#include "WakelatchCore/TurnRecords.h"

namespace wakelatch::host {
namespace {

using Started = AgentCommandLine::Run;

const AgentProfiles& shipped() {
  static const AgentProfiles profiles = loadAgents({installedAgentsFile()}).profiles;
  return profiles;
}

TEST(Catalogue, RecognisesWhatRunsAndNothingElse) {
  const AgentResolver resolver = shipped().watched({});
  const auto id = [&](const char* path, const char* arguments) -> std::string {
    const auto* profile = resolver.profileForCommand(path, arguments);
    return profile == nullptr ? "-" : profile->id;
  };
  using Row = std::array<const char*, 3>;
  for (const auto& [path, arguments, expected] : {
           // None is an agent.
           Row{"/usr/bin/tail", "tail -f src/claude-code/docs/a", "-"},
           Row{"/usr/bin/python3", "python3 -m http.server --directory /h/claude-code/", "-"},
           Row{"/bin/bash", "bash -c /u/src/@anthropic-ai/claude-code/x", "-"},
           Row{"/usr/bin/node", "node server.js --provider copilot pi", "-"},
           Row{"/usr/bin/node", "node server.js /srv/models/grok", "-"},
           Row{"/u/src/claude-code/tool", "tool", "-"},
           // Each is one.
           Row{"/u/.local/share/claude/versions/2.1.197", "claude", "claude-code"},
           Row{"/opt/homebrew/Caskroom/claude-code/2.1/claude", "claude", "claude-code"},
           Row{"/u/.nvm/versions/node/v20/bin/node",
               "node /u/.nvm/versions/node/v20/lib/node_modules/@anthropic-ai/claude-code/cli.js",
               "claude-code"},
           Row{"/Applications/Visual Studio Code.app/Contents/MacOS/Code Helper (Plugin)",
               "/Applications/Visual Studio Code.app/Contents/MacOS/Code Helper (Plugin) "
               "/u/.vscode/x/node_modules/@anthropic-ai/claude-code/cli.js --verbose",
               "claude-code"},
           Row{"/u/.volta/tools/image/node/20.1/bin/node",
               "node --max-old-space-size=8192 /u/.volta/bin/gemini --yolo", "gemini-cli"},
           Row{"/usr/bin/node", "node -r /x/hook.js --no-warnings /u/n/.bin/qwen", "qwen-code"},
           Row{"/usr/bin/npx", "npx -y -p @openai/codex codex", "codex-cli"},
           Row{"/u/.bun/bin/bun", "bun x opencode", "opencode"},
           Row{"/usr/bin/uv", "uv tool run --from aider-chat aider", "aider"},
           Row{"/usr/bin/python3", "python3 -X dev -m aider --model gemini", "aider"},
           Row{"/usr/bin/node", "node /n/@mariozechner/pi-coding-agent/dist/cli.js",
               "pi-coding-agent"},
       }) {
    EXPECT_EQ(id(path, arguments), expected) << path << " " << arguments;
  }
}

TEST(Catalogue, TellsHowAnAgentWasStarted) {
  const AgentResolver resolver = shipped().watched({});
  struct Row {
    const char *path, *arguments;
    Started run;
  };
  for (const auto& [path, arguments, run] : {
           Row{"claude", "claude", Started::interactive},
           Row{"claude", "claude -p fix it --verbose", Started::oneShot},
           Row{"claude", "claude --model opus --print=x", Started::oneShot},
           Row{"claude", "claude -p --input-format stream-json", Started::server},
           Row{"claude", "claude -p mcp is down", Started::oneShot},
           Row{"claude", "claude explain the -p option", Started::interactive},
           Row{"claude", "claude -- -p", Started::interactive},
           Row{"/n/codex", "/n/codex -m gpt-5 exec do it", Started::oneShot},
           Row{"/n/codex", "/n/codex -c a=b e review", Started::oneShot},
           Row{"/n/codex", "/n/codex why does exec fail", Started::interactive},
           Row{"/n/codex", "/n/codex app-server --listen unix://", Started::server},
           Row{"/usr/bin/node", "node --title=x /n/gemini -p hello", Started::oneShot},
           Row{"/usr/bin/node", "node /n/gemini --experimental-acp", Started::server},
           Row{"opencode", "opencode run -i", Started::server},
           Row{"grok", "grok agent stdio", Started::server},
       }) {
    const AgentCommandLine command(path, arguments);
    const auto* profile = resolver.profileForCommand(path, arguments);
    if (profile == nullptr) {
      EXPECT_EQ(run, Started::interactive) << arguments;
      continue;
    }
    EXPECT_EQ(command.runOf(*profile), run) << arguments;
  }
}

TEST(Catalogue, ReadsWhatAgentsWriteAboutTheirTurns) {
  using Row = std::array<const char*, 3>;
  for (
      const auto& [id, text, expected] : {
          Row{"claude-code", R"({"pid":62,"status":"busy","updatedAt":1})", "working 62"},
          Row{"claude-code", R"({"pid":62,"status":"waiting","waitingFor":"permission prompt"})",
              "waiting 62"},
          Row{"codex-cli", R"({"type":"event_msg","payload":{"type":"task_started"}})", "working"},
          Row{"codex-cli", R"({"type":"event_msg","payload":{"type":"turn_aborted"}}
{"type":"event_msg","payload":{"type":"token_count"}}
)",
              "idle"},
          Row{"codex-cli",
              R"({"type":"response_item","payload":{"type":"function_call","name":"exec_command"}}
{"type":"event_msg","payload":{"type":"token_usage_record"}})",
              "asksForTool"},
          Row{"gemini-cli", R"({"id":"1","type":"user","content":[{"text":"go"}]}
{"$set":{"lastUpdated":"now"}}
)",
              "working"},
          Row{"gemini-cli", R"({"id":"2","type":"gemini","content":"Done."})", "unclear"},
          Row{"gemini-cli", R"({"$set":{"messages":[{"type":"user","content":"x"}]}})", "idle"},
          Row{"copilot-cli", R"({"a1":{"refreshedAt":"2026-11-23T16:25:08.947Z","working":true}})",
              "working"},
          Row{"grok-build", R"({"type":"permission_resolved","tool_name":"ask_user_question"}
{"type":"phase_changed","phase":"tool_execution"}
)",
              "waiting"},
          Row{"qwen-code", R"({"type":"assistant","message":{"role":"model","parts":[{"text":"x"},
)",
              ""},
          Row{"qwen-code",
              R"({"type":"assistant","message":{"parts":[{"functionCall":{"name":"read_file"}}]}})",
              "working"},
          Row{"qwen-code", R"({"type":"assistant","message":{"parts":[{"text":"x"}]}}
{"type":"system","systemPayload":{"uiEvent":{"response_id":"r1"}}}
)",
              "idle"},
          Row{"qwen-code", R"({"type":"user","message":{"role":"user"}}
{"type":"system","systemPayload":{"uiEvent":{"response_id":""}}}
)",
              "idle"},
          Row{"pi-coding-agent", R"({"type":"message","message":{"role":"toolResult"}}
{"type":"compaction"}
)",
              "working"},
      }) {
    for (const AgentProfile& profile : shipped().all()) {
      if (profile.id != id) continue;
      std::string told;
      const auto records = TurnReader::parse(profile.turnRecords[0], text, true);
      for (const TurnRecord& record : records.value_or(std::vector<TurnRecord>())) {
        told += std::string(rawValue(record.state)) +
                (record.pid ? " " + std::to_string(*record.pid) : "");
      }
      EXPECT_EQ(told, expected) << id << " " << text;
    }
  }
}

}  // namespace
}  // namespace wakelatch::host
