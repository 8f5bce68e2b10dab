#include "Quote.h"

#include <cstdio>

namespace L3DecapCli {

namespace {

bool isPrintable(char c) {
   return c >= ' ' && c <= '~';
}

void appendEscaped(std::string& out, char c) {
   if (isPrintable(c)) {
      out += c;
      return;
   }
   char hex[5];
   std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
   out += hex;
}

// Appends `text` escaped, cut after `limit` bytes.
void appendShort(std::string& out, std::string_view text, std::size_t limit) {
   for (const char c : text.substr(0, limit)) {
      appendEscaped(out, c);
   }
   if (text.size() > limit) {
      out += "...";
   }
}

}  // namespace

std::string quotedWord(std::string_view word) {
   std::string out(1, '\'');
   appendShort(out, word, kQuotedBytes);
   out += '\'';
   return out;
}

std::string printable(std::string_view message) {
   std::string out;
   while (!message.empty()) {
      const std::size_t blank = message.find_first_of(" \n");
      const std::size_t end = blank == std::string_view::npos ? message.size() : blank + 1;
      appendShort(out, message.substr(0, end - (blank == std::string_view::npos ? 0 : 1)),
                  kLongestWord);
      if (blank != std::string_view::npos) {
         out += message[blank];
      }
      message.remove_prefix(end);
   }
   return out;
}

}  // namespace L3DecapCli
