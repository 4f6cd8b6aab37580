// Reading a WebDAV multistatus answer and the percent-encoding of paths.
// The XML is parsed with expat in namespace mode, so that any prefix a
// server chooses for "DAV:" is understood; expat loads no external entities
// and limits entity expansion, so a hostile server cannot make it read files
// or exhaust memory.
#include <expat.h>

#include <cstring>

#include "sync/sync_webdav.h"

namespace lumeo {

namespace {

constexpr char kDav[] = "DAV:|";

struct PropStat {
  bool ok = true;  // no status, or a 2xx one
  bool collection = false;
  std::optional<std::uint64_t> length;
};

struct Response {
  std::string href;
  bool ok = true;
  std::vector<PropStat> propstats;
};

struct ParseState {
  std::vector<std::string> stack;  // element names, "DAV:|name" for DAV elements
  std::string text;
  bool sawMultistatus = false;
  std::optional<Response> response;
  std::optional<PropStat> propstat;
  std::vector<Response> responses;
  bool broken = false;
};

bool isDav(const char* name, const char* local) {
  return std::strncmp(name, kDav, 5) == 0 && std::strcmp(name + 5, local) == 0;
}

bool statusLineOk(const std::string& line) {
  // "HTTP/1.1 200 OK"
  auto space = line.find(' ');
  if (space == std::string::npos) return false;
  auto code = line.substr(space + 1, 3);
  return code.size() == 3 && code[0] == '2';
}

std::string trimmed(const std::string& s) {
  auto start = s.find_first_not_of(" \t\r\n");
  if (start == std::string::npos) return {};
  auto end = s.find_last_not_of(" \t\r\n");
  return s.substr(start, end - start + 1);
}

void XMLCALL onStart(void* data, const char* name, const char**) {
  auto& state = *static_cast<ParseState*>(data);
  state.text.clear();
  if (state.stack.empty() && !isDav(name, "multistatus")) state.broken = true;
  if (isDav(name, "multistatus")) state.sawMultistatus = true;
  if (isDav(name, "response")) state.response = Response();
  if (isDav(name, "propstat") && state.response) state.propstat = PropStat();
  if (isDav(name, "collection") && state.propstat && state.stack.size() >= 2 &&
      state.stack.back() == std::string(kDav) + "resourcetype")
    state.propstat->collection = true;
  state.stack.emplace_back(name);
}

void XMLCALL onEnd(void* data, const char* name) {
  auto& state = *static_cast<ParseState*>(data);
  if (isDav(name, "href") && state.response && state.stack.size() >= 2 &&
      state.stack[state.stack.size() - 2] == std::string(kDav) + "response") {
    state.response->href = trimmed(state.text);
  } else if (isDav(name, "getcontentlength") && state.propstat) {
    auto text = trimmed(state.text);
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos && text.size() < 20)
      state.propstat->length = std::stoull(text);
  } else if (isDav(name, "status")) {
    bool ok = statusLineOk(trimmed(state.text));
    if (state.propstat && state.stack.size() >= 2 &&
        state.stack[state.stack.size() - 2] == std::string(kDav) + "propstat") {
      state.propstat->ok = ok;
    } else if (state.response) {
      state.response->ok = ok;
    }
  } else if (isDav(name, "propstat") && state.response && state.propstat) {
    state.response->propstats.push_back(*state.propstat);
    state.propstat.reset();
  } else if (isDav(name, "response") && state.response) {
    state.responses.push_back(std::move(*state.response));
    state.response.reset();
  }
  state.text.clear();
  if (!state.stack.empty()) state.stack.pop_back();
}

void XMLCALL onText(void* data, const char* text, int length) {
  static_cast<ParseState*>(data)->text.append(text, static_cast<std::size_t>(length));
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::optional<std::vector<SyncWebDavEntry>> syncWebDavParseMultistatus(const std::string& body,
                                                                       std::string* why) {
  ParseState state;
  XML_Parser parser = XML_ParserCreateNS(nullptr, '|');
  if (!parser) {
    if (why) *why = "out of memory";
    return std::nullopt;
  }
  XML_SetUserData(parser, &state);
  XML_SetElementHandler(parser, onStart, onEnd);
  XML_SetCharacterDataHandler(parser, onText);
  bool parsed = XML_Parse(parser, body.data(), static_cast<int>(body.size()), XML_TRUE) == XML_STATUS_OK;
  std::string error = parsed ? "" : XML_ErrorString(XML_GetErrorCode(parser));
  long line = static_cast<long>(XML_GetCurrentLineNumber(parser));
  XML_ParserFree(parser);
  if (!parsed) {
    if (why) *why = "not well-formed XML (" + error + " at line " + std::to_string(line) + ")";
    return std::nullopt;
  }
  if (!state.sawMultistatus || state.broken) {
    if (why) *why = "XML that is not a WebDAV multistatus";
    return std::nullopt;
  }
  std::vector<SyncWebDavEntry> entries;
  for (const auto& response : state.responses) {
    if (!response.ok || response.href.empty()) continue;
    std::string path = response.href;
    // An absolute URL: keep the path only.
    if (auto scheme = path.find("://"); scheme != std::string::npos && scheme < path.find('/')) {
      auto slash = path.find('/', scheme + 3);
      path = slash == std::string::npos ? "/" : path.substr(slash);
    }
    auto decoded = syncWebDavDecodePath(path);
    if (!decoded) continue;  // a name that cannot be one of ours
    SyncWebDavEntry entry;
    entry.href = *decoded;
    for (const auto& propstat : response.propstats) {
      if (!propstat.ok) continue;
      entry.isCollection = entry.isCollection || propstat.collection;
      if (propstat.length) {
        entry.size = *propstat.length;
        entry.sizeKnown = true;
      }
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

std::string syncWebDavEncodeSegment(const std::string& segment) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : segment) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
        c == '_' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::optional<std::string> syncWebDavDecodePath(const std::string& encoded) {
  std::string out;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    char c = encoded[i];
    if (c == '?' || c == '#') break;
    if (c != '%') {
      out += c;
      continue;
    }
    if (i + 2 >= encoded.size()) return std::nullopt;
    int high = hexValue(encoded[i + 1]);
    int low = hexValue(encoded[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    char byte = static_cast<char>(high * 16 + low);
    // A slash or NUL inside a name has no place in our paths.
    if (byte == '/' || byte == '\0') return std::nullopt;
    out += byte;
    i += 2;
  }
  return out;
}

}  // namespace lumeo
