// The JSON form of a MEDIACMD.
//
//   {"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":4294967295,
//   "Cmd": {"Value":2,"String":"Play",},"Speed": {"Value":65520,"String":"100",},
//   "Position": {"Value":-1,"TcType":"drop-frame","TcString":"...",},...,}}
//
// The same elements, in the same order and under the same conditions as the XML form
// (mediacmd_xml.h), composed as text: every member, the last one included, is followed by a
// comma (peers expect exactly this text). CmdID, StructSize and Channel are written unsigned,
// every other number as a signed 32-bit decimal. XML attributes become members of the
// element's object; an element's text becomes "String" ("TcString" for timecode points, and
// "String" also for the encoded "arbID" bytes); the IP video settings' plain values are
// "start", "end" and "audiochannels". Texts are escaped (\" \\ and control characters), bytes
// from 0x80 up are written as they are.
//
// The reader tokenises with jsmn into 100 tokens (a document needing more is refused) and reads
// back everything the writer writes under the rules of the XML form, except that the command is
// also read from "Cmd"'s "Value" (so "Switch" and codes from 22 up survive the JSON form).
// Result codes: 0 success (also for the empty object {}); -1 null record or text, or a tokenizer
// error ("Failed to parse JSON: <jsmn code>\n" through ErrOut: -1 too many tokens, -2 invalid
// character, -3 incomplete text); 1 no object ("Object expected\n"); -2 a root key of eight
// characters other than "MediaCmd"/"ClipInfo", no "MediaCmd"/"ClipInfo" object in the root
// ("No MediaCmd object\n"), a malformed structure ("Unrecognised JSON structure\n"), or any of the
// XML form's value failures with the same messages.
#pragma once
#include "mediacmd_record.h"

extern "C" {
// Composes the text into a ZRAlloc'ed buffer stored in *text. Returns 0, or -1 for a null
// argument or when composing fails (logged as "WARNING(JSONmCmd): Exception: MediaCmdToJSON() ").
int MediaCmdToJSONString(char** text, MEDIACMD* cmd, unsigned tcType);
// Releases *text (when not null) and sets it to null. Returns 0.
int MediaCmdFreeJSONString(char** text);
// Initialises cmd as initMediaCmd(cmd, 0) and fills it from text. tcType is accepted and not
// used (timecode texts without a "TcType" are read as drop-frame). Result codes above.
int MediaCmdFromJSONString(MEDIACMD* cmd, unsigned* tcType, const char* text);
}
