#include "loc/Messages.h"

#include <algorithm>
#include <cstring>

namespace loc {

const Message kMessages[] = {
    {"plat_bad_argument",
     {"Bad argument '%S'.", "Ungültiges Argument „%S“.", "Argumento no válido: «%S».",
      "Argument incorrect : « %S ».", "Argumento inválido: \"%S\"."}},

    {"plat_configuration_global_params",
     {"Global parameters", "Globale Parameter", "Parámetros globales", "Paramètres globaux",
      "Parâmetros globais"}},

    {"plat_configuration_help_default",
     {"default", "Standard", "valor predeterminado", "par défaut", "padrão"}},

    {"plat_configuration_log_dests_title",
     {"Log destinations:", "Protokollziele:", "Destinos de registro:",
      "Destinations de journalisation :", "Destinos de log:"}},

    {"plat_configuration_log_names_title",
     {"Log names:", "Protokollnamen:", "Nombres de registro:", "Noms de journaux :",
      "Nomes de log:"}},

    {"plat_configuration_option_usage",
     {"Options may also be parameters.", "Optionen können auch Parameter sein.",
      "Las opciones también pueden ser parámetros.",
      "Les options peuvent également être des paramètres.",
      "As opções também podem ser parâmetros."}},

    {"plat_configuration_option_usage_only",
     {"Options are parameters.", "Optionen sind Parameter.", "Las opciones son parámetros.",
      "Les options sont des paramètres.", "As opções são parâmetros."}},

    {"plat_configuration_option_usage_with_extra",
     {"Options are parameters, and also the following:",
      "Optionen sind Parameter sowie zusätzlich die folgenden:",
      "Las opciones son parámetros, además de las siguientes:",
      "Les options sont des paramètres, ainsi que les suivantes :",
      "As opções são parâmetros e também as seguintes:"}},

    {"plat_configuration_param_usage",
     {"Parameters can be turned on with -<param> or off with -<param>=0\n"
      "Values can be specified as -<param> <value>\n"
      "Other valid forms are <param>=<value> -<param>=<value> --<param>=<value>\n"
      "Names are case-insensitive.  Valid parameters are listed below.",
      "Parameter werden mit -<Parameter> eingeschaltet und mit -<Parameter>=0 ausgeschaltet\n"
      "Werte können als -<Parameter> <Wert> angegeben werden\n"
      "Weitere gültige Formen sind <Parameter>=<Wert> -<Parameter>=<Wert> --<Parameter>=<Wert>\n"
      "Bei Namen wird nicht zwischen Groß- und Kleinschreibung unterschieden.  Die gültigen "
      "Parameter sind unten aufgeführt.",
      "Los parámetros se activan con -<parámetro> y se desactivan con -<parámetro>=0\n"
      "Los valores se pueden especificar como -<parámetro> <valor>\n"
      "Otras formas válidas son <parámetro>=<valor> -<parámetro>=<valor> --<parámetro>=<valor>\n"
      "Los nombres no distinguen entre mayúsculas y minúsculas.  Los parámetros válidos se indican "
      "a continuación.",
      "Les paramètres sont activés avec -<paramètre> et désactivés avec -<paramètre>=0\n"
      "Les valeurs peuvent être indiquées sous la forme -<paramètre> <valeur>\n"
      "Les autres formes admises sont <paramètre>=<valeur> -<paramètre>=<valeur> "
      "--<paramètre>=<valeur>\n"
      "Les noms ne tiennent pas compte de la casse.  Les paramètres admis sont énumérés "
      "ci-dessous.",
      "Os parâmetros podem ser ativados com -<parâmetro> ou desativados com -<parâmetro>=0\n"
      "Os valores podem ser especificados como -<parâmetro> <valor>\n"
      "Outras formas válidas são <parâmetro>=<valor> -<parâmetro>=<valor> --<parâmetro>=<valor>\n"
      "Os nomes não diferenciam maiúsculas de minúsculas.  Os parâmetros válidos estão listados "
      "abaixo."}},

    {"plat_missing_argument",
     {"Missing argument to '%S'.", "Fehlendes Argument für „%S“.", "Falta un argumento para «%S».",
      "Argument manquant pour « %S ».", "Falta um argumento para \"%S\"."}},

    {"plat_run_with_help",
     {"Run with -help for usage.", "Zur Anzeige der Verwendung mit -help ausführen.",
      "Ejecute con -help para ver el modo de uso.",
      "Exécutez avec -help pour afficher le mode d'emploi.",
      "Execute com -help para ver o modo de uso."}},

    {"plat_this_program_not_directly",
     {"This program is not intended to be run directly.",
      "Dieses Programm ist nicht für die direkte Ausführung vorgesehen.",
      "Este programa no está diseñado para ejecutarse directamente.",
      "Ce programme n'est pas conçu pour être exécuté directement.",
      "Este programa não deve ser executado diretamente."}},

    {"plat_usage_help",
     {"Provide [advanced] usage information.", "[Erweiterte] Hinweise zur Verwendung anzeigen.",
      "Mostrar información de uso [avanzada].",
      "Afficher les informations d'utilisation [avancées].",
      "Mostrar informações de uso [avançadas]."}},

    {"plat_usage_label", {"Usage:", "Verwendung:", "Uso:", "Utilisation :", "Uso:"}},

    {"svr_param_pollcursortime",
     {"How often to poll for cursor movement in ms.",
      "Zeitabstand in ms, in dem Bewegungen des Mauszeigers abgefragt werden.",
      "Intervalo en ms con el que se comprueba el movimiento del cursor.",
      "Intervalle en ms auquel les mouvements du curseur sont détectés.",
      "Intervalo em ms com que o movimento do cursor é verificado."}},

    {"svr_param_pollinterval",
     {"How often to poll for display updates in ms.",
      "Zeitabstand in ms, in dem Änderungen der Anzeige abgefragt werden.",
      "Intervalo en ms con el que se comprueban las actualizaciones de la pantalla.",
      "Intervalle en ms auquel les mises à jour de l'affichage sont détectées.",
      "Intervalo em ms com que as atualizações da tela são verificadas."}},

    {"svr_param_sdesktopx11_capturemethod",
     {"Capture screen updates using the optimal method (0), by polling (1), or by forcing use of "
      "the DAMAGE extension (2). The optimal method uses DAMAGE if it is enabled and responsive.",
      "Bildschirmänderungen mit der optimalen Methode (0), durch regelmäßiges Abfragen (1) oder "
      "zwingend mit der DAMAGE-Erweiterung (2) erfassen. Die optimale Methode verwendet DAMAGE, "
      "wenn die Erweiterung aktiviert ist und reagiert.",
      "Captura las actualizaciones de la pantalla con el método óptimo (0), mediante sondeo (1) o "
      "forzando el uso de la extensión DAMAGE (2). El método óptimo utiliza DAMAGE si está "
      "habilitada y responde.",
      "Capturer les mises à jour de l'écran avec la méthode optimale (0), par interrogation "
      "périodique (1) ou en imposant l'extension DAMAGE (2). La méthode optimale utilise DAMAGE si "
      "cette extension est activée et répond.",
      "Captura as atualizações da tela com o método ideal (0), por sondagem (1) ou forçando o uso "
      "da extensão DAMAGE (2). O método ideal usa DAMAGE se ela estiver habilitada e responder."}},

    {"svr_param_sdisplay_displaydevice",
     {"The name of the monitor to remote to connected Ruvo Viewer users, or empty to remote all "
      "monitors.",
      "Der Name des Monitors, der verbundenen Ruvo Viewer-Benutzern bereitgestellt wird, oder "
      "leer, "
      "um alle Monitore bereitzustellen.",
      "El nombre del monitor que se muestra a los usuarios de Ruvo Viewer conectados, o vacío para "
      "mostrar todos los monitores.",
      "Le nom du moniteur à présenter aux utilisateurs de Ruvo Viewer connectés, ou vide pour "
      "présenter tous les moniteurs.",
      "O nome do monitor a ser exibido aos usuários conectados do Ruvo Viewer, ou vazio para "
      "exibir "
      "todos os monitores."}},
};

const size_t kMessageCount = sizeof kMessages / sizeof *kMessages;

const Message* findMessage(const char* id) {
  if (!id) return nullptr;
  const Message* const end = kMessages + kMessageCount;
  const Message* const found =
      std::lower_bound(kMessages, end, id, [](const Message& message, const char* wanted) {
        return std::strcmp(message.id, wanted) < 0;
      });
  return found != end && std::strcmp(found->id, id) == 0 ? found : nullptr;
}

}  // namespace loc
