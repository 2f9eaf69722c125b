#pragma once

#include <array>
#include <string>

namespace skyreel {

/// The servers that the sources ask: an HTTP root is "http://host[:port]", an FTP root "host[:port]". Each
/// is a setting of the name given in kServerRootSettings; an empty setting means the built-in default.
struct TServerRoots {
  std::string EuArchiveOld;
  std::string EuArchiveNew;
  std::string EuDA;
  std::string DundeePdus;
  std::string Goes;
  std::string MSFC;
  std::string OceanPrediction;
  std::string WeatherFax;
  std::string HurricaneCentre;
  std::string RadarArchive;
  std::string DutchWeather;
  std::string Karlsruhe;
  std::string NewZealand;
  std::string Australia;
};

/// One row of the table of server settings.
struct TServerRootSetting {
  const char* Name;     ///< value name in the settings
  const char* Caption;  ///< what the user reads in the servers dialog
  std::string TServerRoots::*Field;
  const char* Default;  ///< the built-in root
  bool Ftp;
};

/// All server settings, in the order in which the dialog shows them. A default under ".example" is a
/// placeholder: that source has no public server any more, the user names one under Tools, Servers.
inline constexpr std::array<TServerRootSetting, 14> kServerRootSettings = {{
    {"ServerEuArchiveOld", "EUMETSAT images, old naming", &TServerRoots::EuArchiveOld,
     "http://www.eumetsat.de", false},
    {"ServerEuArchiveNew", "EUMETSAT images, new naming", &TServerRoots::EuArchiveNew,
     "http://oiswww.eumetsat.org", false},
    {"ServerEuDA", "EUMETSAT data (FTP)", &TServerRoots::EuDA, "data.eumetsat.example", true},
    {"ServerDundeePdus", "Dundee PDUS", &TServerRoots::DundeePdus, "http://www.sat.dundee.ac.uk", false},
    {"ServerGoes", "GOES images, GSFC", &TServerRoots::Goes, "http://goes.gsfc.nasa.gov", false},
    {"ServerMSFC", "MSFC data (FTP)", &TServerRoots::MSFC, "ghrc.msfc.nasa.gov", true},
    {"ServerOceanPrediction", "NOAA Ocean Prediction Center", &TServerRoots::OceanPrediction,
     "http://www.opc.ncep.noaa.gov", false},
    {"ServerWeatherFax", "NOAA weather fax", &TServerRoots::WeatherFax, "http://weather.noaa.gov", false},
    {"ServerHurricaneCentre", "NOAA hurricane centre", &TServerRoots::HurricaneCentre,
     "http://www.nhc.noaa.gov", false},
    {"ServerRadarArchive", "Dutch radar archive", &TServerRoots::RadarArchive, "http://radar-archive.example",
     false},
    {"ServerDutchWeather", "Dutch weather site", &TServerRoots::DutchWeather, "http://weather-site.example",
     false},
    {"ServerKarlsruhe", "Karlsruhe university archive", &TServerRoots::Karlsruhe,
     "http://www.wetterzentrale.de", false},
    {"ServerNewZealand", "New Zealand weather service", &TServerRoots::NewZealand,
     "http://www.metservice.co.nz", false},
    {"ServerAustralia", "Australian Bureau of Meteorology", &TServerRoots::Australia, "http://www.bom.gov.au",
     false},
}};

}  // namespace skyreel
