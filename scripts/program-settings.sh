# Sourced by scripts that run the program with its own settings in a folder of its own.

# run_program FOLDER ARGUMENT... : runs the program as cron would, with its home in FOLDER.
run_program() {
  local folder=$1
  shift
  mkdir -p "$folder/home" "$folder/runtime"
  chmod 700 "$folder/runtime"
  env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM -u XDG_DATA_HOME -u XDG_STATE_HOME HOME="$folder/home" \
    XDG_CONFIG_HOME="$folder/home/.config" XDG_RUNTIME_DIR="$folder/runtime" "$folder/bin/Skyreel" "$@"
}

# install_program FOLDER EXECUTABLE : puts the program into FOLDER and lets it write its default settings.
install_program() {
  local folder=$1 executable=$2
  mkdir -p "$folder/bin"
  # A hard link saves the copy. A symbolic link will not do: the program's folder is that of its own file.
  ln -f "$executable" "$folder/bin/Skyreel" 2>/dev/null || cp -f "$executable" "$folder/bin/Skyreel"
  run_program "$folder" -CLOSE >/dev/null 2>&1
}

# set_values FOLDER < lines "Name=value" : replaces these settings. Fails when the program knows no setting of
# a name.
set_values() {
  local file=$1/home/.config/Quenmoor/Skyreel.conf line
  while IFS= read -r line; do
    [ -n "$line" ] || continue
    grep -q "^${line%%=*}=" "$file" || { echo "unknown setting: ${line%%=*}" >&2; return 1; }
    SETTING=${line%%=*}= LINE=$line awk 'index($0, ENVIRON["SETTING"]) == 1 { $0 = ENVIRON["LINE"] } { print }' \
      "$file" >"$file.new"
    mv "$file.new" "$file"
  done
}

# point_at FOLDER HTTP_ROOT FTP_ROOT : makes every source use these servers.
point_at() {
  local file=$1/home/.config/Quenmoor/Skyreel.conf name
  {
    sed -n 's/^\(Server[^=]*\)=.*/\1/p' "$file" | while read -r name; do
      case "$name" in
        ServerEuDA | ServerMSFC) echo "$name=\"$3\"" ;;
        *) echo "$name=\"$2\"" ;;
      esac
    done
    echo "BracknellURL=\"$2/wz/pics/bracka.gif\""
  } | set_values "$1"
}
