// Runs a program of the build and collects its exit status and output.
#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

struct ProgramResult {
  int status = -1;
  std::string output;  // standard output and standard error
};

// Runs command through the shell, with standard error joined to standard output.
inline ProgramResult RunProgram(const std::string& command) {
  ProgramResult result;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return result;
  std::array<char, 4096> buffer;
  size_t n = 0;
  while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.output.append(buffer.data(), n);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}
