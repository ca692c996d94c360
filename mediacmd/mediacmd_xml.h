// The XML form of a MEDIACMD, through TinyXML.
//
//   <?xml version="1.0" encoding="iso-8859-1" ?><MediaCmd><!-- ... -->
//   <CmdID Value="-98237952" /><StructSize Value="4188" /><Channel Value="-1" />
//   <Cmd Value="2" Deferred="1">Play</Cmd><Speed Value="65520">100</Speed>
//   <Position Value="-1" TcType="drop-frame">..</Position> ... payload elements ...</MediaCmd>
//
// Numbers are written as signed 32-bit decimals in "Value" attributes; set flags as attributes
// with the value 1; timecode points with their "TcType" name and timecode text. The payload
// elements follow the layouts of mediacmd_payload.h. Texts that TinyXML's reader would
// otherwise condense (leading, trailing or doubled blanks) are written as CDATA sections.
//
// Reading: every element the writer produces is read back, with these rules (the JSON form
// reads the same way):
// - "Value" wins over an element's text; the text of a point (Position, Start, End) is read
//   only when it has no "Value", as frames for "frames" and through tc2Frame otherwise, in the
//   element's "TcType" or else the caller's type (4, drop-frame, when none is given).
// - The command is read by name only: "Switch" and "Unknown" are not read back (the record
//   keeps its command, ctStop after MediaCmdFromXMLString); "OverrideDeferred" is not read
//   back either, only "cfOverideDeferred"/"cfOverrideDeferred" are.
// - A "Speed" element sets "usespeed"; a mask element sets "usepresets"; a "CmdAlt" element
//   sets "usecmdalt"; a "Start"/"End" element sets "usestart"/"useend", or with "IsOffset"
//   "usestartoffset"/"useendoffset". Flags the form does not carry ("useposition",
//   "preview", "remotecommand", "over24hours", "secondfield") are not restored.
// - Unknown elements and attributes are ignored.
//
// Result codes of the readers: 0 success; -1 null record, null text or malformed XML
// ("Failed to parse XML: <TinyXML's description>\n" through ErrOut); 1 no root element
// ("Element expected\n"); -2 a root other than "MediaCmd"/"ClipInfo" ("Unexpected root
// element: <name>\n"), a value of the wrong type or range ("Bad value for <element>[.<attr>]\n"),
// a text longer than its field ("Text too long for ClipID: <n> characters\n", "Text too long for
// the payload: <element>\n", "Texts too long for the payload\n"), payload elements of two
// layouts ("Conflicting payload elements: <a> and <b>\n") or bad "arbID" data. On failure the
// record holds what was read before the fault, and never anything past its fields.
#pragma once
#include <tinyxml.h>

#include "mediacmd_record.h"

// Appends the declaration and the "MediaCmd" tree to doc. Returns 0 (-1 for a null argument).
int MediaCmdToXML(TiXmlDocument* doc, MEDIACMD* cmd, unsigned tcType);
// The compact printed document in a ZRAlloc'ed text stored in *text; release it with
// MediaCmdFreeXMLString. Returns MediaCmdToXML's result.
int MediaCmdToXMLString(char** text, MEDIACMD* cmd, unsigned tcType);
// Releases *text (when not null) and sets it to null. Returns 0.
int MediaCmdFreeXMLString(char** text);
// Fills cmd from a parsed document (the fields the document carries; the rest is left as it
// is). tcType: type of timecode texts (null: drop-frame). Result codes above.
int MediaCmdFromXML(MEDIACMD* cmd, unsigned* tcType, TiXmlDocument doc);
// Initialises cmd as initMediaCmd(cmd, 0), parses text and reads it with MediaCmdFromXML.
int MediaCmdFromXMLString(MEDIACMD* cmd, unsigned* tcType, const char* text);
