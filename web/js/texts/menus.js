// The texts of the menu rights screen.
export default {
  ja: {
    'menus.heading': 'メニュー権限',
    'menus.user': 'ユーザーID',
    'menus.load': '表示',
    'menus.of': '{0} のメニュー権限',
    'menus.none': 'ユーザーIDを入力して「表示」を押すか、ユーザー画面から開いてください。',
    'menus.noRow': 'このユーザーのメニュー権限はまだありません。',
    'menus.save': '保存',
    'menus.all': 'すべて選択',
    'menus.clear': 'すべて解除',
    'menus.saved': 'メニュー権限を保存しました。',
  },
  en: {
    'menus.heading': 'Menu rights',
    'menus.user': 'User ID',
    'menus.load': 'Show',
    'menus.of': 'Menu rights of {0}',
    'menus.none': 'Enter a user ID and press "Show", or open this from the Users screen.',
    'menus.noRow': 'This user has no menu rights yet.',
    'menus.save': 'Save',
    'menus.all': 'Select all',
    'menus.clear': 'Clear all',
    'menus.saved': 'Menu rights saved.',
  },
};
