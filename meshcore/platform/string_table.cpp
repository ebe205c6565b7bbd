#include "meshcore/platform/string_table.h"

#include "meshcore/platform/string_ids.h"

#include <atomic>
#include <cstdlib>

namespace meshcore {

namespace {

struct Entry {
  unsigned id;
  const char* en;
  const char* fr;
};

// Quoted texts are kept exactly as the historical tables held them, wording
// quirks included ("No enough memory", the double blank in the French 1026).
constexpr Entry kTable[] = {
    {IDS_DEFAULT_MATERIAL, "Default material", "Default material"},
    {IDS_OBJECT, "Object", "Objet"},
    {IDS_NO_PARAMETERS, "No parameters\n", "Pas de paramètres\n"},
    {IDS_UNNAMED_MATERIAL, "Unnamed material", "Matière sans nom"},
    {IDS_UNNAMED_OBJECT, "Unnamed object", "Objet sans nom"},
    {IDS_IO_ACCESS_DENIED, "Unauthorized access", "Accès non autorisé"},
    {IDS_IO_BAD_FORMAT, "Bad file format", "Mauvais format de fichier"},
    {IDS_IO_CANT_SAVE_OPTIONS, "Can't save in this format with these options",
     "Enregistrement impossible dans ce format  avec ces options"},
    {IDS_IO_DISK_FULL, "Disk full", "Disque plein"},
    {IDS_IO_ERROR_TITLE, "File access failed", "Erreur lors de l'accès au fichier"},
    {IDS_IO_NO_MEMORY, "No enough memory", "Pas assez de mémoire"},
    {IDS_IO_UNKNOWN_ERROR, "An unknown error occurs during file access",
     "Une erreur inconnue s'est produite lors de l'accès au fichier"},
    {IDS_IO_UNKNOWN_FILE_TYPE, "Unknown file type", "Type de fichier inconnu"},
    {IDS_IO_CANCELED, "Operation canceled", "Opération interrompue"},
    {IDS_IMAGES_NOT_FOUND, "Texture images not found, written without them: %1",
     "Images de texture introuvables, écrites sans elles : %1"},
    {IDS_TYPE_CURVE, "Curve", "Courbe"},
    {IDS_TYPE_GROUP, "Object group", "Groupe d'objets"},
    {IDS_TYPE_PATCH, "Patch", "Patch"},
    {IDS_TYPE_POLYGONAL, "Polygonal object", "Objet polygonal"},
    {IDS_MATERIAL, "Material", "Matière"},
    {IDS_RGB_FORMAT, "R : % d  G : %d  B : %d", "R : % d\tV : %d\tB : %d"},
    {IDS_CHANNEL_UVW, "texture coordinates", "coordonnées de texture"},
    {IDS_CHANNEL_VC, "vertex colours", "couleur de sommets"},
    {IDS_CHANNEL_POINT_NORMALS, "point normals", "normales points"},
    {IDS_CHANNEL_FACE_NORMALS, "face normals", "normales faces"},
    {IDP_INVALID_FILENAME, "The file name %1 is not valid.",
     "Le nom de fichier %1 n'est pas valide."},
    {IDP_FAILED_TO_OPEN_DOC, "Could not open %1.", "Impossible d'ouvrir %1."},
    {IDP_FAILED_INVALID_FORMAT, "%1 does not have the expected format.",
     "%1 n'a pas le format attendu."},
    {IDP_FAILED_INVALID_PATH, "%1 was not found or its path is not valid.",
     "%1 est introuvable ou son chemin n'est pas valide."},
    {IDP_FAILED_DISK_FULL, "The disk is full: %1 could not be written.",
     "Le disque est plein : %1 n'a pas pu être écrit."},
    {IDP_FAILED_ACCESS_READ, "Access to %1 for reading was denied.",
     "L'accès en lecture à %1 a été refusé."},
    {IDP_FAILED_ACCESS_WRITE, "Access to %1 for writing was denied.",
     "L'accès en écriture à %1 a été refusé."},
};

enum : int { kUnset = -1, kEnglish = 0, kFrench = 1 };

std::atomic<int>& ActiveLanguage() {
  static std::atomic<int> lang{kUnset};
  return lang;
}

int LanguageFromEnvironment() {
  for (const char* var : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* v = std::getenv(var);
    if (v && *v) // the first one set decides, even when it is not French
      return (v[0] == 'f' && v[1] == 'r') ? kFrench : kEnglish;
  }
  return kEnglish;
}

int CurrentLanguage() {
  int lang = ActiveLanguage().load(std::memory_order_relaxed);
  if (lang == kUnset) {
    lang = LanguageFromEnvironment();
    int expected = kUnset;
    // A concurrent SetLanguage wins over the environment.
    if (!ActiveLanguage().compare_exchange_strong(expected, lang))
      lang = expected;
  }
  return lang;
}

} // namespace

std::string LoadString(unsigned id) {
  const bool french = CurrentLanguage() == kFrench;
  for (const Entry& e : kTable)
    if (e.id == id)
      return french ? e.fr : e.en;
  return {};
}

void SetLanguage(const std::string& lang) {
  if (lang.empty()) {
    ActiveLanguage().store(kUnset);
    return;
  }
  const bool french = lang.size() >= 2 && lang[0] == 'f' && lang[1] == 'r';
  ActiveLanguage().store(french ? kFrench : kEnglish);
}

std::string GetLanguage() {
  return CurrentLanguage() == kFrench ? "fr" : "en";
}

std::string FormatPrompt(const std::string& prompt, const std::string& arg) {
  std::string out;
  for (std::size_t i = 0; i < prompt.size(); ++i) {
    if (prompt[i] == '%' && i + 1 < prompt.size() && prompt[i + 1] == '1') {
      out += arg;
      ++i;
    } else {
      out += prompt[i];
    }
  }
  return out;
}

} // namespace meshcore
