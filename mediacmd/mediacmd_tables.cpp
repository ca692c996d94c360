// The get/set and control-flag vocabularies. Row order is significant (first match wins), so
// the tables are kept exactly in their published order, duplicates and out-of-order rows included.
#include "mediacmd/mediacmd_tables.h"

#include <cctype>
#include <cstring>

const MCMDXLAT mcmdGSXlat[MCMD_GS_ROWS] = {
    {0x1, "tc"}, {0x2, "ub"}, {0x3, "ltctc"}, {0x4, "ltcub"}, {0x5, "vitctc"}, {0x6, "vitcub"},
    {0x7, "tcsource"}, {0x8, "tctype"}, {0x9, "start"}, {0xA, "end"}, {0xB, "in"}, {0xC, "lastin"},
    {0xD, "out"}, {0xE, "lastout"}, {0xF, "editon"}, {0x10, "editoff"}, {0x11, "preroll"},
    {0x12, "postroll"}, {0x13, "automode"}, {0x14, "playdelay"}, {0x15, "ltctcpreset"},
    {0x16, "ltcubpreset"}, {0x17, "vitctcpreset"}, {0x18, "vitcubpreset"}, {0x19, "framedata"},
    {0x1A, "keycode"}, {0x1B, "inkcode"}, {0x1C, "215code"}, {0x1D, "headsandtails"},
    {0x1E, "timecodesources"}, {0x1F, "ccsetup"}, {0x20, "disabletimecode"},
    {0x21, "vitcsourceprecedence"}, {0x22, "ltcsourceprecedence"}, {0x23, "getfileextents"},
    {0x5A, "getnextclip"}, {0x5B, "firstclip"}, {0x5C, "nextclip"}, {0x5D, "tcsgettlclipstate"},
    {0x5E, "tcsgettlclipinfo"}, {0x5F, "clipinfo"}, {0x60, "clipcopy"}, {0x61, "tcclipinfo"},
    {0x64, "audchan"}, {0x65, "vidchan"}, {0x66, "infchan"}, {0x67, "audselect"},
    {0x68, "vidselect"}, {0x69, "infselect"}, {0x6A, "audedit"}, {0x6B, "videdit"},
    {0x6C, "infedit"}, {0x6D, "editmode"}, {0x96, "metadata"}, {0x97, "metadatadirectory"},
    {0x98, "metadatavolume"}, {0x99, "metadatacurrentuser"}, {0x9A, "metadatalocalmachine"},
    {0x9B, "metadataglobal"}, {0x9C, "metadatareadwrite"}, {0x9D, "metadataxmltype"},
    {0x9E, "metabaseopen"}, {0x9F, "metabasecreate"}, {0xA0, "metabaseclose"},
    {0xA1, "metabasefilecount"}, {0xA2, "metabasefilename"}, {0xA3, "metabasefileremove"},
    {0xA4, "metabasefileadd"}, {0xA5, "metabasetagindex"}, {0xA6, "metabasegettag"},
    {0xA7, "metabasesettag"}, {0xA8, "metabasedefaulttags"}, {0xA9, "metabasefilerename"},
    {0xAA, "metabasereplaymark"}, {0xAB, "metabasegetname"}, {0xAC, "metabasegettable"},
    {0xAD, "metabaseresetandrecord"}, {0xC8, "audinselect"}, {0xC9, "audoutselect"},
    {0xCA, "audinputlevel"}, {0xCB, "audoutputlevel"}, {0xCC, "audadvancedlevel"},
    {0xCD, "audoutphase"}, {0xCE, "audoutadvancedphase"}, {0xCF, "audcrossfadetime"},
    {0xD0, "audltcenable"}, {0xD1, "audinltcchannel"}, {0xD2, "audoutltcchannel"},
    {0xD3, "auddtmfenable"}, {0xD4, "audindtmfchannel"}, {0xD5, "audoutdtmfchannel"},
    {0xD6, "audwavepeakrms"}, {0xD7, "audinputbitrate"}, {0xD8, "audinputsamplerate"},
    {0xD9, "audinputmode"}, {0xDA, "audinputheadroom"}, {0xDB, "audinputoriginal"},
    {0xDC, "audinputerrorprotect"}, {0xDD, "audinputcopyright"}, {0xDE, "audinputslave"},
    {0xDF, "audinputbass"}, {0xE0, "audinputtreble"}, {0xE1, "audinputstatus"},
    {0xE2, "audiomappinginput"}, {0xE3, "audiomappingoutput"}, {0xE4, "audmonitorselect"},
    {0xE5, "audchannelsencoded"}, {0xE6, "audaudioscrub"}, {0xE7, "audplaybackfile"},
    {0xE8, "audlevelselect"}, {0xE9, "getsetmediafile"}, {0xEA, "audiosurroundoutput"},
    {0xEB, "audindialog"}, {0xEC, "audoutsync"}, {0x12C, "vidfreeze"}, {0x12D, "vidprereadmode"},
    {0x12E, "videditfield"}, {0x12F, "vidrecframe"}, {0x130, "vidplayframe"}, {0x131, "vidnoee"},
    {0x132, "vidsuperimpose"}, {0x133, "vidanalogmonitorsdtype"},
    {0x134, "vidanalogmonitorhdtype"}, {0x135, "vidanalogmonitormethod"},
    {0x136, "vidanalogmonitorupmode"}, {0x137, "vidanalogmonitordownmode"},
    {0x138, "vidpanscanzoom"}, {0x139, "vidslowmotionmode"}, {0x13A, "vidvaricammode"},
    {0x13B, "vidcustomsuperimpose"}, {0x13C, "enablesdanamorphic"}, {0x13D, "vidsignallineinfo"},
    {0x13E, "vidsignalvancinfo"}, {0x190, "vidinselect"}, {0x191, "vidinlocktype"},
    {0x192, "vidinsetup"}, {0x193, "vidinvideo"}, {0x194, "vidinhue"}, {0x195, "vidinchroma"},
    {0x196, "vidinuchroma"}, {0x197, "vidinvchroma"}, {0x198, "vidincolorkiller"},
    {0x199, "vidinagc"}, {0x19A, "vidinbandwidth"}, {0x19B, "vidinblack"}, {0x19C, "vidinwhite"},
    {0x19D, "vidincoring"}, {0x19E, "vidinpeaking"}, {0x19F, "vidinsharpness"},
    {0x1A0, "vidingamma"}, {0x1A1, "vidinsignalformat"}, {0x1A2, "vidinquality"},
    {0x1A3, "vidinstatus"}, {0x1A4, "vidindialog"}, {0x1F4, "vidsetup"}, {0x1F5, "vidvideo"},
    {0x1F6, "vidhue"}, {0x1F7, "vidchroma"}, {0x1F8, "viduchroma"}, {0x1F9, "vidvchroma"},
    {0x1FA, "vidbandwidth"}, {0x1FB, "vidblacksetup"}, {0x1FC, "vidcolor"},
    {0x1FD, "videoinputrouting"}, {0x258, "vidoutselect"}, {0x259, "vidoutgenlock"},
    {0x25A, "vidoutgenlocksource"}, {0x25B, "vidoutlocktype"}, {0x25C, "vidouthphase"},
    {0x25D, "vidoutsubcarrier"}, {0x25E, "vidoutcoring"}, {0x25F, "vidoutpeaking"},
    {0x260, "vidoutadjust1"}, {0x261, "vidoutadjust2"}, {0x262, "vidoutgenlockdelay"},
    {0x263, "vidoutlocksignalformat"}, {0x264, "disableduallink"}, {0x265, "referencewipemix"},
    {0x266, "disablegenlockforinfiniteloop"}, {0x2BC, "compchverticalres"},
    {0x2BD, "compchhorizontalres"}, {0x2BE, "compchchromaformat"}, {0x2BF, "compchdcprecision"},
    {0x2C0, "compchaspectratio"}, {0x2C1, "compchstandard"}, {0x2C2, "compchlanguagecode"},
    {0x2C3, "compchccformat"}, {0x2C4, "compchconcealmentvector"}, {0x2C5, "compchclosedgop"},
    {0x2C6, "compchadjustgoptc"}, {0x2C7, "compchaltcoefftable"}, {0x2C8, "compchnonlinearquant"},
    {0x2C9, "compchmuxrate"}, {0x2CA, "compchaudpacketsize"}, {0x2CB, "compchvidpacketsize"},
    {0x2CC, "compchaudiostreamid"}, {0x2CD, "compchvideostreamid"},
    {0x2CE, "compchaudiostreampid"}, {0x2CF, "compchvideostreampid"},
    {0x2D0, "compchallowsettings"}, {0x2D1, "compchfourcc"}, {0x2D2, "compchbitcount"},
    {0x2D3, "compchsizeimage"}, {0x2D4, "compchrate"}, {0x2D5, "compchscale"},
    {0x2D6, "compchpitch"}, {0x2D7, "videoencodeformat"}, {0x2D8, "audioencodeformat"},
    {0x2D9, "compchannelchangems"}, {0x2DA, "alphachromasource"}, {0x2DB, "compressiontype"},
    {0x2DC, "videostandard"}, {0x2DD, "resetchannel"}, {0x2DE, "enablehdsdformat"},
    {0x2DF, "vblankenable"}, {0x2E0, "lutenable"}, {0x2E1, "audiofiletype"},
    {0x2E2, "audiobitsize"}, {0x2E3, "audiofrequency"}, {0x2E4, "enableoverlappedwrites"},
    {0x2E5, "matchoutputtoclip"}, {0x2E6, "allowindependentchanconfig"},
    {0x2E7, "streamsizebytes"}, {0x2E8, "videolinkmethod"}, {0x320, "ipvideotype"},
    {0x321, "ipvideosettings"}, {0x322, "ipvideoclock"}, {0x384, "signalformat"},
    {0x385, "comptype"}, {0x386, "compratesize"}, {0x387, "comprateratio"},
    {0x388, "compratepercent"}, {0x389, "compgopsize"}, {0x38A, "compifactor"},
    {0x38B, "compbfactor"}, {0x38C, "comppfactor"}, {0x38D, "comprefperiod"},
    {0x38E, "totalstorageavail"}, {0x38F, "totalstoragefree"}, {0x390, "totaltimeavail"},
    {0x391, "totaltimefree"}, {0x392, "vtrtype"}, {0x393, "hdsditransfertype"},
    {0x394, "sortorder"}, {0x395, "bayertype"}, {0x396, "signalchange"}, {0x3E8, "local"},
    {0x3E9, "supportedfiletype"}, {0x3EA, "ignorefiletype"}, {0x3EB, "recinhibit"},
    {0x3EC, "recdrive"}, {0x3ED, "recfilename"}, {0x3EE, "recrate"}, {0x3EF, "recfileformat"},
    {0x3F0, "recaudfileformat"}, {0x3F1, "delinhibit"}, {0x3F2, "insinhibit"},
    {0x3F3, "convertfileformat"}, {0x3F4, "convertaudfileformat"}, {0x3F5, "defstilllen"},
    {0x3F6, "systime"}, {0x3F7, "dsyncms"}, {0x3F8, "hwport"}, {0x3F9, "pbee"},
    {0x3FA, "servorefselect"}, {0x3FB, "headselect"}, {0x3FC, "colorframe"},
    {0x3FD, "vidrefdisable"}, {0x3FE, "playcountdelay"}, {0x3FF, "emulateeditbumping"},
    {0x41E, "channelname"}, {0x41F, "recordnameflags"}, {0x404, "vidinputvalid"},
    {0x405, "vidgenlockvalid"}, {0x406, "serialeditmode"}, {0x407, "serialprotocols"},
    {0x408, "pausebeforestop"}, {0x409, "pausedelay"}, {0x40A, "frontpanel"},
    {0x40B, "frontpanelcomport"}, {0x40C, "vdcppreroll"}, {0x40D, "gettcltc"},
    {0x40E, "gettcvitc"}, {0x40F, "gettcrp188"}, {0x410, "gettcrp215"}, {0x411, "gettcrp215ink"},
    {0x412, "gettcirig"}, {0x413, "gettcflags"}, {0x414, "recordstarttype"},
    {0x415, "getafdstatus"}, {0x416, "getccstatus"}, {0x417, "getaudiostatus"},
    {0x418, "videoinputprefferedscantype"}, {0xBB8, "userdata0"}, {0xBB9, "userdata1"},
    {0xBBA, "userdata2"}, {0xBBB, "userdata3"}, {0xBBC, "userdata4"}, {0xBBD, "userdata5"},
    {0xBBE, "userdata6"}, {0xBBF, "userdata7"}, {0xBC0, "userdata8"}, {0xBC1, "userdata9"},
    {0x2710, "errorlog"}, {0x2711, "errorlogname"}, {0x2712, "errorlogstartms"},
    {0x2713, "errorlogcurrentms"}, {0x2714, "errorloglastchange"}, {0x2715, "errormessage"},
    {0x2774, "eventlog"}, {0x4E20, "sysbufferlevel"}, {0x4E21, "sysmemoryusage"},
    {0x4E22, "syscpuusage"}, {0x4E23, "sysdroppedframes"}, {0x4E23, "droppedframes"},
    {0xC350, "proxymode"}, {0xC351, "proxystatus"}, {0xC352, "getnextproxy"}, {0xC353, "addproxy"},
    {0xC354, "promoteproxy"}, {0xC355, "removeproxy"}, {0xC356, "proxycpuusage"},
    {0xC357, "transfertoarchive"}, {0xC358, "transferfromarchive"}, {0xC359, "getnextarchiveclip"},
    {0xC35A, "getnexttransfertoarchiveclip"}, {0xC35B, "getnexttransferfromarchiveclip"},
    {0xC35C, "addproxyandoutputname"}, {0xC35D, "writertindex"}, {0xC35E, "proxyfiletype"},
    {0xC365, "proxyfilesize"}, {0xC35F, "proxyfilecompressiontype"},
    {0xC35F, "proxycompressiontype"}, {0xC360, "proxyfiledatarate"}, {0xC360, "proxydatarate"},
    {0xC362, "addfiletarget"}, {0xC363, "proxymultiratestreams"}, {0xC361, "proxyfiledirectory"},
    {0xC364, "maximumclipnumber"}, {0xEA60, "klxversion"}, {0xEA61, "meversion"},
    {0xEA62, "klxtype"}, {0xEA63, "klxchanneltype"}, {0xEA64, "klxchannelname"},
    {0xFA00, "monitor"}, {0xFA01, "monitorhwnds"}, {0xFA02, "monitordisplay"},
    {0xFA03, "monitorgrab"}, {0xFA04, "utilitymonitordraw"}, {0xFA05, "utilitymonitordrawsetup"},
    {0xFA06, "wavevectorsetup"}, {0xFA07, "wavevectortype"}, {0xFA08, "wavevectorarea"},
    {0xFA09, "wavevectorlastchangems"}, {0xFA0A, "monitorloadbuffers"},
    {0xFA0B, "wavevectorquality"}, {0xFA0C, "wavevectorgetdata"}, {0xFA0D, "wavevectorpreview"},
    {0xFA0F, "vgasyncmode"}, {0xFA10, "videocolourspace"}, {0xFA11, "wavevectorscopevblank"},
    {0xFA12, "monitormodifier"}, {0xFA13, "wavevectorgraticule"}, {0xFA14, "wavevectorhsscope"},
    {0xFA15, "monitordeinterlacetype"}, {0xFA16, "wavevectoreventlimits"}, {0xFAFA, "dirgetlist"},
    {0xFAFB, "dirgetinfo"}, {0xFAFC, "dirgetfileinfo"}, {0xFAFD, "dirgetfilegrab"},
    {0xFAFE, "vgadisplayenable"}, {0xFAFF, "vgadirectxconfig"}, {0xFB00, "vga3dconfig"},
    {0xFB01, "vga3dwipetype"}, {0xFB02, "vga3dmix"}, {0xFB03, "vga3dthreshold"},
    {0xFB04, "vga3dsplithorizontal"}, {0xFB05, "vga3dsplitvertical"}, {0xFB06, "vga3dgridsize"},
    {0xFB07, "vga3dgridtype"}, {0xFB08, "vgafullscreenenable"}, {0xFB09, "limitavailablechannels"},
    {0xFB0A, "vgazoompan"}, {0xFB0B, "vefxi3d"}, {0x10000, "channelsexist"}, {0x10001, "clipmode"},
    {0x10002, "recoffset"}, {0x10003, "chancapabilities"}, {0x10004, "lastchangems"},
    {0x10005, "gpiin"}, {0x10006, "gpiout"}, {0x10007, "currentms"}, {0x10008, "clipmodepreroll"},
    {0x10009, "clipmodebackup"}, {0x1000A, "lastdrawms"}, {0x186A0, "savecurrent"},
    {0x186A1, "loadclipspace"}, {0x186A2, "loadtcspace"}, {0x186A3, "loadfilmspace"},
    {0x186A4, "loadeditspace"}, {0x186A5, "saveclipspacetodisk"}, {0x186A6, "savetcspacedisk"},
    {0xDBBA0, "userlogin"}, {0xDBBA1, "userlastchangems"}, {0xDBBA2, "userlist"},
    {0xDBBA3, "useradd"}, {0xDBBA4, "userdel"}, {0xDBBA5, "userrights"}, {0xDBBA6, "userpasswd"},
    {0xF4240, "piconframe"}, {0xF4241, "jpegframe"}, {0xF4242, "imagedirectory"},
    {0xF4243, "frameinfo"}, {0xF4244, "rawframe"}, {0xF4245, "preallocateeditfile"},
    {0xF4246, "createeditfile"}, {0xF4247, "previewframe"}, {0xF4248, "currentframe"},
    {0xF4249, "recordavhal"}, {0x10C8E0, "klxservice"}, {0x10C8E1, "insertqueue"},
    {0x10C8E2, "xlatqueue"}, {0x10C8E3, "xmlratescale"}, {0x10C8E4, "xmlfileproperties"},
    {0x10C8E5, "zrprojecttoxml"}, {0x10C8E6, "applicationid"}, {0x10C8E7, "inlay"},
    {0x10C8E8, "inlayfile"}, {0x10C8E9, "inlaysourcearea"}, {0x10C8EA, "inlaydestinationarea"},
    {0x10C8EB, "inlayoffset"}, {0x10C8EC, "inlaytctype"}, {0x10C8ED, "exportclip"},
    {0x10C8EE, "exportclipdirectory"}, {0x10C8EF, "exportaudiofilesourcename"},
    {0x10C8F0, "exportfilename"}, {0x10C8F1, "exportprofilename"},
    {0x10C8F2, "exportthresholdlimits"}, {0x10C8F3, "importclipdirectory"},
    {0x10C8F4, "filesegmentsize"}, {0x10C8F5, "recordfileupdateframes"},
    {0x10C8F6, "checkframetimestamp"}, {0x10C8F7, "abortmediafileload"},
    {0x10C8F8, "maxfilethreads"}, {0x10C8F9, "maxcodecthreads"}, {0x1B198, "overlayenable"},
    {0x1B199, "overlayaudiometers"}, {0x1B19A, "overlayvchipenable"}, {0x1B19B, "overlaycc"},
    {0x1B19C, "overlaytimecode"}, {0x1B19D, "overlaywatermark"}, {0x1B19E, "overlaysourceformat"},
    {0x1B19F, "overlaycustomtext"}, {0x1B1A0, "overlayvectorscope"}, {0x1B1A1, "overlaywaveform"},
    {0x1B1A2, "overlayhistogram"}, {0x7FFF0000, "shutdownapplication"},
    {0x7FFF0001, "shutdownsystem"}, {0x7FFF0002, "cleanrecordwipedrive"},
    {0x7FFF0003, "installsystem"},
};

MCMDXLAT mcmdGSStringXlat[MCMD_GS_ROWS] = {};

const MCMDXLAT mcmdFLAGXlat[MCMD_FLAG_ROWS] = {
    {0x1, "deferred"}, {0x40000000, "overridedeferred"}, {0x2, "timems"}, {0x4, "timetarget"},
    {0x8, "timehouseclock"}, {0x10, "usespeed"}, {0x20, "usepresets"}, {0x40, "useposition"},
    {0x80, "usepositionoffset"}, {0x100, "usestart"}, {0x200, "usestartoffset"},
    {0x400, "useend"}, {0x800, "useendoffset"}, {0x1000, "useallids"}, {0x2000, "useclipid"},
    {0x4000, "copy"}, {0x4000, "noclipfiles"}, {0x8000, "convert"}, {0x8000, "notcspaces"},
    {0x10000, "usecmdalt"}, {0x20000, "isshuttle"}, {0x40000, "usingcurrent"},
    {0x80000, "useframecount"}, {0x100000, "fields"}, {0x200000, "ripple"}, {0x400000, "loop"},
    {0x800000, "trigger"}, {0x1000000, "preview"}, {0x2000000, "remotecommand"},
    {0x4000000, "over24hours"}, {0x8000000, "secondfield"}, {0x8000000, "usenextfield"},
    {0x10000000, "invert"}, {0x20000000, "test"}, {0x40000000, "ignore"}, {0x80000000, "noreturn"},
};

namespace {

template <size_t N>
const char* nameOf(const MCMDXLAT (&table)[N], uint32_t code) {
  for (const MCMDXLAT& row : table)
    if (row.code == code) return row.name;
  return nullptr;
}

bool sameIgnoringCase(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b)
    if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*b))) return false;
  return *a == *b;
}

template <size_t N>
int codeOf(const MCMDXLAT (&table)[N], const char* name, unsigned* code) {
  if (!name) return -1;
  for (const MCMDXLAT& row : table) {
    if (sameIgnoringCase(row.name, name)) {
      if (code) *code = row.code;
      return 0;
    }
  }
  return -1;
}

int copyName(const char* found, char* name, size_t nameSize) {
  if (!found) return -1;
  size_t length = std::strlen(found);
  if (name) {
    if (length >= nameSize) return -1;
    std::memcpy(name, found, length + 1);
  }
  return 0;
}

}  // namespace

const char* gsName(uint32_t code) { return nameOf(mcmdGSXlat, code); }
const char* cfName(uint32_t flag) { return nameOf(mcmdFLAGXlat, flag); }

int gsToString(int code, char* name) { return copyName(gsName(static_cast<uint32_t>(code)), name, MCMD_NAME_MAX); }
int gsToStringN(int code, char* name, size_t nameSize) { return copyName(gsName(static_cast<uint32_t>(code)), name, nameSize); }
int gsFromString(const char* name, unsigned* code) { return codeOf(mcmdGSXlat, name, code); }

int cfToString(int flag, char* name) { return copyName(cfName(static_cast<uint32_t>(flag)), name, MCMD_NAME_MAX); }
int cfToStringN(int flag, char* name, size_t nameSize) { return copyName(cfName(static_cast<uint32_t>(flag)), name, nameSize); }
int cfFromString(const char* name, unsigned* flag) { return codeOf(mcmdFLAGXlat, name, flag); }
