// Public headers of the mediacmd subsystem in one include: the media command record, its
// vocabularies, and its XML, JSON and debug forms.
#pragma once
#include "mediacmd_record.h"
#include "mediacmd_tables.h"
#include "mediacmd_xml.h"
#include "mediacmd_json.h"
#include "mediacmd_debug.h"
