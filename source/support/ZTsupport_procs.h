// SPDX-License-Identifier: Apache-2.0
// Fixed-width strings, case, tokens from strings and streams, and the dates and times that a user
// types.

#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// Copies at most string_size characters and cuts trailing blanks. The output holds string_size + 1.
void MoveString(char* output_string, const char* input_string, int string_size);
// Fills exactly max_string_size characters, padded with blanks, without terminator.
void StringToPacked(const char* input_string, char* output_string, int max_string_size);
std::string strrtrim(const char* input_string);  // without trailing blanks
void Upshift(char* string);
void Upshift(std::string& string);
// Without regard to case, the shorter string first whatever it holds: -1, 0, 1 or strcmp's result.
int ptc_strcasecmp(const char* string1, const char* string2);
// The first len characters without regard to case; -1 when either string has fewer.
int ptc_strncasecmp(const char* string1, const char* string2, int len);

// The next token of a string, at most max_token_size characters and the terminator. Its length, 0
// at the end. token_position is where it starts; the text behind it begins at input_string +
// token_position + length.
int GetToken(const char* input_string, char* token, int& token_position, int max_token_size);
// The next token of a stream. 1; 0 at the end, for a null stream. Interactive: a newline is a
// token.
int GetToken(std::FILE* stream, char* token, int max_token_size, int interactive);
// The same for tokens that only white space ends, at most 254 characters (the buffer holds 256); 0
// also for a longer one.
int GetToken(std::FILE* stream, char* token);
// Pushes a token and a blank back onto the stream.
void PutToken(std::FILE* stream, const char* token);
int ParseToken(const char* token);  // the keyword's code, 10 for a comment, -1 for any other
void IgnoreToNewLine(std::FILE* stream);
// One line without its leading blanks, at most count characters, and a newline. The buffer holds
// count + 2. 1; 0 at the end of the stream, even behind a last line without newline.
int CopyToNewLine(char* buffer, std::FILE* stream, int count);

// Seconds since 1970 of the last modification; 0 when it cannot be read.
std::int64_t GetFileModTime(const char* FileName);
// "9:05" gives 9 and 5. 1 on success.
int ReadTime(const char* time_string, int& minute, int& hour);
// "today" or three numbers in the locale's order; month 0 to 11, year from 1900 as in struct tm.
// Two digit years are 1980 to 2079. 1 on success.
int ReadDate(const char* date_string, int& month, int& day, int& year);
// The places (0, 1, 2) of year, month and day in the control object's date format.
void LocalDateSequence(int* YearSequence, int* MonthSequence, int* DaySequence);
