# Writes a demo installation into a folder: ORVANE.ini, odbc.ini (an SQLite
# data source), menuinfo.csv and the mail server's folder (mail/: its list
# folders, and its account and alias tools, links to scripts/demo-mail-tool
# that keep their state beside them). Used by scripts/demo (folder var/), the
# browser tests and the demo mail test (a temporary folder). Sourced, not
# run. Leaves files that exist alone.
#
#   write_demo_installation DIR [DSN]
ORVANE_DEMO_MAIL_TOOL="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/demo-mail-tool"

write_demo_installation() {
  local dir="$1" dsn="${2:-orvane_demo}"
  mkdir -p "$dir/mail/Lists"
  if [ ! -f "$dir/ORVANE.ini" ]; then
    cat > "$dir/ORVANE.ini" <<INI
# orvane demo configuration. Every key the system reads is present.
LOCAL_DB_DSN=$dsn
MAINFORM_BACK_COLOR=FFFFFF
ML_MODE=2
ML_USEFLG=1
ML_ADDUSEFLG=1
ML_ISLOCAL=True
ML_SERVER=demo.example.jp
ML_SERVERIP=127.0.0.1
ML_EXEPROXY_PORT=5300
ML_EXEPROXY_TIMEOUT=10
# ML_FOLDER is the demo's mail server: its lists, and its tools adduser.exe
# and addalias.exe (links to scripts/demo-mail-tool) with their state.
ML_FOLDER=$dir/mail
ML_READ_ATTACH_PATH=$dir/attach/read
ML_SEND_ATTACH_PATH=$dir/attach/send
ML_SAVE_ATTACH_PATH=$dir/attach/save
JNJI_MODE=0
DAIRI_ONESELFFLG=0
INI
  fi
  if [ ! -f "$dir/odbc.ini" ]; then
    cat > "$dir/odbc.ini" <<INI
[$dsn]
Driver=SQLite3
Database=$dir/orvane.db
JournalMode=WAL
Timeout=5000
INI
  fi
  if [ ! -f "$dir/menuinfo.csv" ]; then
    cat > "$dir/menuinfo.csv" <<CSV
01,スケジュール,1
02,施設予約,1
03,掲示板,1
04,キャビネット,1
05,アドレス帳,1
06,リンク集,1
07,ToDo,1
11,会議室,0
20,備品,0
21,メール,1
22,伝言メモ,1
23,ワークフロー,1
50,管理者メニュー,1
CSV
  fi
  # sales-west belongs to no section yet: a list to give one.
  local list
  for list in sales-east sales-west general; do
    mkdir -p "$dir/mail/Lists/$list"
    touch "$dir/mail/Lists/$list/users.lst" "$dir/mail/Lists/$list/users.txt"
  done
  # The command lines run ML_FOLDER/adduser.exe and ML_FOLDER/addalias.exe.
  local tool
  for tool in adduser.exe addalias.exe; do
    if [ ! -e "$dir/mail/$tool" ] && [ ! -L "$dir/mail/$tool" ]; then
      ln -s "$ORVANE_DEMO_MAIL_TOOL" "$dir/mail/$tool"
    fi
  done
}
