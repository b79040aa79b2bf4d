// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): the status log.

#include <sys/stat.h>

#include <string_view>

#include "platform/sys/native_path.h"
#include "shared/general/SHstatusMsg.h"

int STATUS_FILE_OBJ::fStatusLogID = -1;
std::FILE* STATUS_FILE_OBJ::fStatusLogFP = nullptr;

const char* STATUS_MESSAGE_OBJECT::CallerId = nullptr;
const char* STATUS_MESSAGE_OBJECT::CustomMsg = nullptr;
NLS_MESSAGE_OBJ* STATUS_MESSAGE_OBJECT::NLSmsg = nullptr;
STATUS_FILE_OBJ* STATUS_MESSAGE_OBJECT::StatusFileObj = nullptr;

namespace {

std::string MissingMessage(int set_number, int msg_number) {
  return "<message catalog missing message " + std::to_string(msg_number) + " in set " +
         std::to_string(set_number) + ">";
}

// The text with the parameter in place of its first '!', or behind it in parentheses. An empty
// parameter says nothing and counts as none.
std::string MessageLine(std::string line, std::string_view parameter) {
  const std::size_t last = parameter.find_last_not_of(' ');
  if (last != std::string_view::npos)
    parameter = parameter.substr(0, last + 1);
  const std::size_t marker = line.find('!');
  if (marker != std::string::npos)
    line.replace(marker, 1, parameter);
  else if (!parameter.empty())
    line.append(" (").append(parameter).append(")");
  return line;
}

}  // namespace

STATUS_FILE_OBJ::~STATUS_FILE_OBJ() {
  if (fStatusLogFP != nullptr)
    std::fclose(fStatusLogFP);
  fStatusLogFP = nullptr;
  fStatusLogID = -1;
}

void STATUS_FILE_OBJ::Flush() {
  if (fStatusLogFP != nullptr)
    std::fflush(fStatusLogFP);
}

int STATUS_FILE_OBJ::IsTooLarge() const {
  constexpr off_t kMostKilobytes = 1000;
  struct ::stat status {};
  return sys::_fstat(fStatusLogID, &status) == 0 && status.st_size / 1024 > kMostKilobytes;
}

STATUS_MESSAGE_OBJECT::STATUS_MESSAGE_OBJECT(const char* caller_id, const char* custom_msg,
                                             NLS_MESSAGE_OBJ* NLS_msg)
    : STATUS_MESSAGE_OBJECT(caller_id, custom_msg, NLS_msg, nullptr) {}

STATUS_MESSAGE_OBJECT::STATUS_MESSAGE_OBJECT(const char* caller_id, const char* custom_msg,
                                             NLS_MESSAGE_OBJ* NLS_msg,
                                             STATUS_FILE_OBJ* status_file_obj) {
  CallerId = caller_id;
  CustomMsg = custom_msg;
  NLSmsg = NLS_msg;
  StatusFileObj = status_file_obj;
}

const char* STATUS_MESSAGE_OBJECT::GetNLSMessage(int set_number, int msg_number) {
  return NLS_MESSAGE_OBJ::GetNLSmessage(set_number, msg_number, nullptr);
}

void STATUS_MESSAGE_OBJECT::BeginEntry(STATUS_FILE_OBJ* status_file, int suppress_header) {
  status_file->WriteMsg(" ");
  if (!suppress_header) {
    std::string header = "**** ";
    header.append(CallerId == nullptr ? "" : CallerId).append(" : ").append(GetNLSDateTime());
    if (CustomMsg != nullptr)
      header.append(" (").append(CustomMsg).append(")");
    header += " ****";
    status_file->WriteMsg(header.c_str());
  }
  if (status_file->IsTooLarge())
    status_file->RollStatusFile();
}

void STATUS_MESSAGE_OBJECT::WriteMsgToStatusFile(STATUS_FILE_OBJ* status_file,
                                                 const int* set_number, const int* msg_number,
                                                 const char** parameter, int msg_count,
                                                 int suppress_header) {
  BeginEntry(status_file, suppress_header);
  for (int i = 0; i < msg_count; ++i) {
    const char* const text = GetNLSMessage(set_number[i], msg_number[i]);
    const char* const given = parameter == nullptr ? nullptr : parameter[i];
    const std::string line =
        MessageLine(text == nullptr ? MissingMessage(set_number[i], msg_number[i]) : text,
                    given == nullptr ? "" : given);
    status_file->WriteMsg(line.c_str());
  }
  status_file->Flush();
}

void STATUS_MESSAGE_OBJECT::LogStatus(const int* set_number, const int* msg_number,
                                      const char** parameter, int msg_count, int suppress_header) {
  if (StatusFileObj != nullptr)
    WriteMsgToStatusFile(StatusFileObj, set_number, msg_number, parameter, msg_count,
                         suppress_header);
}

void STATUS_MESSAGE_OBJECT::LogStatus(int msg_count, const char** parameter, int suppress_header) {
  if (StatusFileObj == nullptr)
    return;
  BeginEntry(StatusFileObj, suppress_header);
  for (int i = 0; i < msg_count; ++i)
    StatusFileObj->WriteMsg(parameter[i]);
  StatusFileObj->Flush();
}

void STATUS_MESSAGE_OBJECT::WriteStatus(int set_number, int msg_number, int suppress_header, ...) {
  std::va_list arguments;
  va_start(arguments, suppress_header);
  WriteStatus_valist(set_number, msg_number, suppress_header, arguments);
  va_end(arguments);
}

void STATUS_MESSAGE_OBJECT::WriteStatus_valist(int set_number, int msg_number, int suppress_header,
                                               std::va_list arguments) {
  if (StatusFileObj == nullptr)
    return;
  BeginEntry(StatusFileObj, suppress_header);
  const std::string line =
      GetNLSMessage(set_number, msg_number) == nullptr
          ? MissingMessage(set_number, msg_number)
          : NLS_MESSAGE_OBJ::CreateNLSmessage_valist(set_number, msg_number, nullptr, arguments);
  StatusFileObj->WriteMsg(line.c_str());
  StatusFileObj->Flush();
}
