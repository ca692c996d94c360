// The item names of KLXINFOREC in slot order. The name is also the item's configuration key.
#include "metadata/klxinfo.h"

static_assert(kxtProxyFile == 79 && kxtVersionString == 58 && kxtNotUsed_87 == 86,
              "text slot enumeration out of step with the record");
static_assert(kxnVersionNumber == 12 && kxnCustomMetadataBlockType == 33 && kxnNumericNotUsed_46 == 46,
              "numeric slot enumeration out of step with the record");

// The five locators are names only: they describe where a clip lives, which the store must not
// carry from one clip to the next. VersionString is always the library's own version.
const KlxInfoItem klxInfoTextItems[] = {
    {"FileName", false}, {"NativeLocator", false}, {"UniversalLocator", false},
    {"TCP-IPAddress", false}, {"SourceLocator", false},
    {"ChannelIdentifier", true}, {"ChannelName", true}, {"ChannelDescription", true},
    {"Title", true}, {"Subject", true}, {"Category", true}, {"Keywords", true},
    {"Ratings", true}, {"Comments", true}, {"DoNotUse", true}, {"Owner", true},
    {"Editor", true}, {"Supplier", true}, {"Source", true}, {"Project", true},
    {"Status", true}, {"Author", true}, {"RevisionNumber", true}, {"Produced", true},
    {"Album", true}, {"Artist", true}, {"Composer", true}, {"Copyright", true},
    {"CreationData", true}, {"Description", true}, {"Director", true}, {"Disclaimer", true},
    {"EncodedBy", true}, {"FullName", true}, {"Genre", true}, {"HostComputer", true},
    {"Information", true}, {"Make", true}, {"Model", true}, {"OriginalArtist", true},
    {"OriginalFormat", true}, {"Performers", true}, {"Producer", true}, {"Product", true},
    {"Software", true}, {"SpecialPlaybackRequirements", true}, {"Track", true},
    {"Warning", true}, {"URL", true},
    {"EditData1", true}, {"EditData2", true}, {"EditData3", true}, {"EditData4", true},
    {"EditData5", true}, {"EditData6", true}, {"EditData7", true}, {"EditData8", true},
    {"EditData9", true},
    {"VersionString", false},
    {"Manufacturer", true}, {"Language", true}, {"Format", true}, {"InputDevice", true},
    {"DeviceModelNum", true}, {"DeviceSerialNum", true}, {"Reel", true}, {"Shot", true},
    {"Take", true}, {"SlateInfo", true}, {"FrameAttribute", true}, {"Episode", true},
    {"Scene", true}, {"DailyRoll", true}, {"CamRoll", true}, {"SoundRoll", true},
    {"LabRoll", true}, {"KeyNumberPrefix", true}, {"InkNumberPrefix", true},
    {"PictureIcon", true}, {"ProxyFile", true},
    {nullptr, false},
    {"ImageInfo", true}, {"UMID", true}, {"XML", true}, {"XML_XMP", true},
    {"XML_MediaInfo", true},
    {"NotUsed_87", true}, {"NotUsed_88", true}, {"NotUsed_89", true}, {"NotUsed_90", true},
    {"NotUsed_91", true}, {"NotUsed_92", true}, {"NotUsed_93", true}, {"NotUsed_94", true},
    {"NotUsed_95", true}, {"NotUsed_96", true}, {"NotUsed_97", true}, {"NotUsed_98", true},
    {"NotUsed_99", true},
};

// VersionNumber, like VersionString, belongs to the library and is not stored.
const KlxInfoItem klxInfoNumericItems[] = {
    {nullptr, false},
    {"TimeCode", true}, {"UserBits", true}, {"VITCTimeCode", true}, {"VITCUserBits", true},
    {"VITCExtraData", true}, {"PosterFrame", true}, {"A-Frame", true}, {"AspectRatio", true},
    {"OriginalRate", true}, {"OriginalScale", true}, {"TotalConversions", true},
    {"VersionNumber", false},
    {"FileSize", true}, {"FileDate", true}, {"FileTime", true}, {"SequenceNumber", true},
    {"TotalStreams", true}, {"TotalLength", true}, {"FilmManufacturerCode", true},
    {"FilmTypeCode", true}, {"WhitePoint", true}, {"BlackPoint", true}, {"BlackGain", true},
    {"BreakPoint", true}, {"Gamma1000", true}, {"TagNumber", true}, {"Flags", true},
    {"TimeCodeType", true}, {"LTCTimeCodeType", true}, {"VITCTimeCodeType", true},
    {"ProdDate", true}, {"UniqueID", true}, {"CustomMetadataBlockType", true},
    {"CustomMetadataBlockSize", true}, {"NorthSouthEastWest", true}, {"Latitude", true},
    {"Longitude", true}, {"Exposure", true}, {"RedGain", true}, {"BlueGain", true},
    {"WhiteBalance", true}, {"Matrix", true}, {"ISO", true}, {"GreenGain", true},
    {"FileSizeHi", true},
    {"NumericNotUsed_46", true}, {"NumericNotUsed_47", true}, {"NumericNotUsed_48", true},
    {"NumericNotUsed_49", true},
};
