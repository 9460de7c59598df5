#include "engine/dxl/dxl_vocabulary.h"

#include <algorithm>

namespace embedded::dxl {
namespace {

constexpr std::string_view knownElements[] = {
    // clang-format off
    "acl", "aclentry", "action", "actionbar", "actionbarstyle", "actionbuttonstyle", "actionhotspot", "addedtofile",
    "agent", "agentdata", "agentmodified", "agentrun", "applet", "appletparam", "appletref", "appletresource", "area",
    "attachmentref", "autolaunch", "background", "block", "body", "border", "boxstyle", "break",
    "button", "buttonhotspot", "caption", "cgmdata", "code", "colorsetting", "column", "columnheader", "component",
    "compositedata", "computedtext", "created", "database", "databaseinfo", "databaselink", "databasescript",
    "dataconnection", "datamodified", "datasources", "datetime", "datetimeformat", "datetimelist", "datetimepair",
    "designchange", "designmodified", "document", "documentset", "editorapplet", "ellipse", "embeddedcontrol",
    "embeddeddatepicker", "embeddededitor", "embeddedfileuploadcontrol", "embeddedfoldercontents",
    "embeddedfolderpane", "embeddednavigator", "embeddedoutline", "embeddedscheduler", "embeddedview", "emptyvalue",
    "enddate", "endtime", "event", "field", "fielddefinition", "file",
    "filedata", "fileref", "fileresource", "folder", "folderref", "font", "form", "formula", "frame",
    "frameset", "fulltextsettings", "gif", "graphic",
    "helpaboutdocument", "helpusingdocument", "horizrule", "htmlcode", "image", "imagehotspot", "imagemap",
    "imageref", "imageresource", "imported", "insertion", "item", "itemdata", "javaproject", "javaresource",
    "javascript", "jpeg", "keyword", "label", "lastaccessed", "lastindexed", "launchsettings", "layer",
    "layerbox", "layout", "layoutbutton", "layoutfield", "layoutgraphic", "layouttext", "link", "logentry",
    "lotusscript", "mime", "modified", "name", "namedelementlink", "navigator", "note",
    "noteinfo", "notelink", "notesbitmap", "noteslaunch", "number", "numberformat", "numberlist", "object",
    "objectref", "oleobject", "outline", "outlineentry", "outlinelayout", "page", "par", "pardef", "parstyle",
    "picture", "plaintext", "polygon", "popup", "profiledocument", "rawitemdata", "rectangle",
    "regionlink", "replaceactions", "replicationformula", "revised", "revisions", "richtext", "role", "run",
    "rundata", "rundate", "runlog", "schedule", "scriptlibrary", "section", "sectiontitle", "sharedaction",
    "sharedactionref", "sharedactions", "sharedcolumn", "sharedcolumnref", "sharedfield", "sharedfieldref",
    "singleuser", "startdate", "starttime", "stylesheetref", "stylesheetresource", "subform", "subformref", "tab",
    "table", "tablecell", "tablecolumn", "tablerow", "tablerowstyle", "text", "textlist", "textproperties",
    "textproperty", "trigger", "updatedby", "urllink", "view", "viewicon", "viewlink", "wassignedby", "watermark",
    "weblaunch", "webserviceconsumer", "webserviceprovider", "zone",
    // clang-format on
};
static_assert(std::ranges::is_sorted(knownElements));

} // namespace

bool IsKnownElement(std::string_view name) {
    return std::ranges::binary_search(knownElements, name);
}

} // namespace embedded::dxl
